#pragma once

#include <QObject>
#include <QString>
#include <QVariantList>

#include <optional>

class QDBusPendingCallWatcher;

// The client of the dialog service, which asks the user for consent: to positioning at all, and to
// a network party's request for the position. One dialog at a time; after a failed one no other is
// shown.
class LocationUI : public QObject
{
    Q_OBJECT
public:
    // The service's own answers are only the first two.
    enum DialogReply : int { Declined = 0, Accepted = 1, AcceptedForGood = 2 };
    Q_ENUM(DialogReply)

    LocationUI();

    // Whether the user is being asked: not when another dialog is open.
    bool privacyDialog();

public slots:
    // type: 0 or 1, as the engine gave it. name and id tell the user who asks.
    void showLocationRequest(quint8 transactionId, int type, bool defaultAccept, const QString &name,
                             const QString &id);
    // The request was withdrawn: an answer to it no longer counts. Blocks while the dialogs end.
    void closeLocationRequest(quint8 transactionId);

signals:
    void privacyDialogResult(LocationUI::DialogReply result);
    void locationRequestResult(bool accepted);

private slots:
    void privacyDialogDone(QDBusPendingCallWatcher *call);
    void locationRequestDone(QDBusPendingCallWatcher *call);

private:
    enum class Kind { Privacy = 0, LocationRequest = 1, Withdrawal = 2 };
    struct LocationRequest {
        quint8 transactionId;
        bool defaultAccept;
        QString name;
    };

    bool callDialog(const QVariantList &arguments, Kind kind);
    void closeDialogService();

    bool dialogOpen = false;                             // still, after an error
    const QDBusPendingCallWatcher *m_question = nullptr; // the call that shows the open dialog
    std::optional<LocationRequest> m_request;            // which is this one's, if it is a location request's
};
