#pragma once

#include <QDBusConnection>
#include <QDBusError>
#include <QObject>
#include <QString>

// A client object inside GeoClue.
struct GeoClueClient {
    QString service; // GeoClue's unique name: a GeoClue that was started anew does not know the client
    QString path;
};

// Obtains client objects from GeoClue, one at a time, and gives back each that nobody waits for.
//
// While no agent of the user is there GeoClue does not answer; it does when an agent appears, for all
// that was asked until then. Nothing takes such a question back, and a bus allows few of them, so a
// client that an earlier question brings is as welcome as one of our own, and at some number of open
// questions no more are put.
class GeoClueClients : public QObject
{
    Q_OBJECT
public:
    static constexpr int MostOpenQuestions = 16;

    explicit GeoClueClients(const QDBusConnection &bus, QObject *parent = nullptr);

    void request(); // answered by one signal, from the event loop, if GeoClue ever answers
    void stopWaiting();
    static void giveBack(const QDBusConnection &bus, const GeoClueClient &client);

signals:
    void created(const GeoClueClient &client);
    void failed(const QDBusError &error);

private:
    void onCreated(const GeoClueClient &client);
    void onFailed(quint64 question, const QDBusError &error);

    QDBusConnection m_bus;
    quint64 m_questions = 0;   // asked so far
    quint64 m_ownQuestion = 0; // of the one who waits; 0 when only earlier ones are open
    int m_openQuestions = 0;
    bool m_waiting = false;
};
