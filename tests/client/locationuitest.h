#pragma once

#include "client/fakedialogs.h"
#include "client/locationui.h"
#include "support/logcapture.h"

#include <QSignalSpy>
#include <QTest>

#include <memory>

// The daemon's side of the dialogs, against a dialog service in the test process.
class LocationUITest : public QObject
{
    Q_OBJECT
private slots:
    void init()
    {
        m_dialogs = std::make_unique<FakeDialogs>();
        m_ui = std::make_unique<LocationUI>();
        m_privacy = std::make_unique<QSignalSpy>(m_ui.get(), &LocationUI::privacyDialogResult);
        m_request = std::make_unique<QSignalSpy>(m_ui.get(), &LocationUI::locationRequestResult);
        m_log = std::make_unique<LogCapture>();
    }
    void cleanup()
    {
        m_log.reset();
        m_privacy.reset();
        m_request.reset();
        m_ui.reset();
        m_dialogs.reset();
    }

protected:
    QStringList lines() { return m_log->takeLines(); }

    const QString AlreadyOpen = QStringLiteral("debug: There is already another dialog open!");
    std::unique_ptr<FakeDialogs> m_dialogs;
    std::unique_ptr<LocationUI> m_ui;
    std::unique_ptr<QSignalSpy> m_privacy; // the answers to the privacy dialog
    std::unique_ptr<QSignalSpy> m_request; // the answers to location requests
    std::unique_ptr<LogCapture> m_log;
};
