#include "engine/enginesource.h"
#include "engine/messagebuilder.h"
#include "engine/msgsockclient.h"
#include "engine/orvcomm.h"

#include <QFile>
#include <QTimer>

#include <chrono>
#include <thread>
#include <utility>

using namespace std::chrono_literals;

int ORVComm::init()
{
    if (chooseEngineSource(readEngineSourceWishes(m_paths)) == EngineSource::Test) {
        connectToTestEngine();
    } else {
        qDebug("Connecting to orvd.");
        if (client->connect(QFile::encodeName(m_paths.engineSocket()).constData()) != 0) {
            qWarning("Connection to orvd failed.");
            return -1;
        }
    }

    // Unique: a reconnection must not double the deliveries.
    connect(client.get(), &MsgSockClient::messageReceived, this, &ORVComm::orvInbox, Qt::UniqueConnection);
    connect(client.get(), &MsgSockClient::connectionLost, this, &ORVComm::onConnectionLost,
            Qt::UniqueConnection);
    suplRequestId = 0;
    send(wire::registerPrivacy());
    return 0;
}

bool ORVComm::isConnected() const
{
    return client->isConnected();
}

// Returns connected, or not at all. Blocks for up to 4.2 s, which only a development set-up sees.
void ORVComm::connectToTestEngine()
{
    const QByteArray path = QFile::encodeName(m_paths.testEngineSocket());
    qDebug("Connecting to fake orvd.");
    if (client->connect(path.constData()) != 0) {
        qWarning("Trying to launch fake orvd.");
        launchTestEngine(m_paths);
        std::this_thread::sleep_for(200ms);
        for (int retriesLeft = 4; client->connect(path.constData()) != 0; --retriesLeft) {
            if (retriesLeft == 0)
                qFatal("Connection to fake orvd failed.");
            std::this_thread::sleep_for(1s);
            qWarning("Trying to connect to fake ORV.");
        }
    }
    qWarning(">>>>> Using fake position source! <<<<<<");
}

void ORVComm::onConnectionLost()
{
    // A watchdog that is armed still fires once and tells that the search goes on; then it goes.
    for (const GnssSession &session : std::exchange(sessions, {})) {
        if (session.timer->isActive())
            connect(session.timer, &QTimer::timeout, session.timer, &QObject::deleteLater);
        else
            session.timer->deleteLater();
    }
    gnssState = Idle; // without a word: connectionLost() says it
    emit connectionLost();
}
