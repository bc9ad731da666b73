#pragma once

#include "engine/orvcomm.h"
#include "engine/orvrecorder.h"
#include "support/fakeengine.h"
#include "support/logcapture.h"
#include "support/scoped.h"

#include <QTemporaryDir>
#include <QTest>

#include <memory>
#include <optional>

// A test of an engine link that is connected and registered: the engine is at the other end of a real socket.
class OrvCommTest : public QObject
{
    Q_OBJECT
private slots:
    void init()
    {
        m_noSource.emplace("POSITIONING_SOURCE", std::nullopt);
        m_root = std::make_unique<QTemporaryDir>();
        const DevicePaths paths{m_root->path()};
        m_engine = std::make_unique<FakeEngine>(paths.engineSocket());
        const LogCapture quiet;
        m_orv = std::make_unique<ORVComm>(paths);
        m_seen = std::make_unique<OrvRecorder>(*m_orv);
        QCOMPARE(m_orv->init(), 0);
        QCOMPARE(m_engine->takeReceived().size(), 1); // the registration
    }
    void cleanup()
    {
        m_orv.reset();
        m_seen.reset();
        m_engine.reset();
        m_noSource.reset();
    }

protected:
    std::optional<ScopedVariable> m_noSource;
    std::unique_ptr<QTemporaryDir> m_root;
    std::unique_ptr<FakeEngine> m_engine;
    std::unique_ptr<ORVComm> m_orv;
    std::unique_ptr<OrvRecorder> m_seen;
};
