#pragma once

#include "terminal.h"
#include "watchoptions.h"
#include "watchsession.h"
#include "watchstate.h"

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

#include <memory>

// Joins the session, the state and the output, and decides when to leave and with which status.
class WatchApp : public QObject
{
    Q_OBJECT
public:
    explicit WatchApp(const WatchOptions &options);
    void begin();
    void leave(); // as asked: by a signal, by --seconds or by --count

private:
    void watchNetwork();
    void onFix(const QGeoPositionInfo &fix);
    void onNetworkFix(const QGeoPositionInfo &fix);
    void onDaemonMissing(const QString &why);
    void complain(const QString &text);
    void draw();

    WatchOptions m_options;
    WatchSession m_session;
    WatchState m_state;
    std::unique_ptr<WatchSession> m_networkSession; // with --network
    WatchState m_networkState;
    std::unique_ptr<Terminal> m_terminal;
    QTimer m_redraw;
    QTimer m_end;
};
