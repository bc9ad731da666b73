#pragma once

#include "dialogdesk.h"
#include "dialogserviceif.h"
#include "platform/clock.h"
#include "question.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusServiceWatcher>
#include <QObject>
#include <QPointer>

class QuestionDialog;

// Joins the bus and the dialogs: shows what the desk allows, and answers each caller once.
class DialogService : public QObject, public DialogServiceIF
{
    Q_OBJECT
public:
    explicit DialogService(const QDBusConnection &bus, const Clock &clock = Clock::system());
    ~DialogService() override;

    [[nodiscard]] bool start();                         // false: somebody else has the name
    QuestionDialog *dialog() const;                     // the open one, or null
    QString caller() const { return m_call.service(); } // whom the open dialog answers

    void askPrivacy(const QDBusMessage &call) override;
    void askLocation(int type, bool defaultAccept, const QString &name, const QString &id,
                     const QDBusMessage &call) override;
    void leave(const QDBusMessage &call) override;

signals:
    void left();    // told to exit; everybody has an answer
    void busLost(); // there is nobody left to answer

private slots:
    void onBusLost();

private:
    void handle(DialogDesk::Verdict verdict, DialogDesk::Dialog kind, const Question &question,
                const QDBusMessage &call);
    void show(DialogDesk::Dialog kind, const Question &question, const QDBusMessage &call);
    void watchCaller();
    void onFinished(int result);
    void onCallerGone(const QString &caller);
    void refuseOpen(const char *error, const QString &why);
    QDBusMessage closeOpen();
    void reply(const QDBusMessage &call, const QVariantList &values);
    void refuse(const QDBusMessage &call, const char *error, const QString &why);

    QDBusConnection m_bus;
    const Clock &m_clock;
    QObject m_dialogHost;
    QObject m_applicationHost;
    QDBusServiceWatcher m_callers;
    DialogDesk m_desk;
    QDBusMessage m_call; // that the open dialog answers
    QPointer<QuestionDialog> m_dialog;
};
