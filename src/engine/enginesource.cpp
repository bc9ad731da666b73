#include "engine/enginesource.h"

#include "platform/devicepaths.h"

#include <QFile>
#include <QString>

#include <cstdio>

#include <unistd.h>

using namespace Qt::StringLiterals;

EngineSource chooseEngineSource(const EngineSourceWishes &wishes)
{
    if (wishes.realMarker)
        return EngineSource::Real;
    if (wishes.fakeMarker || wishes.environmentValue.toUpper() == "FAKE")
        return EngineSource::Test;
    return EngineSource::Real;
}

EngineSourceWishes readEngineSourceWishes(const DevicePaths &paths)
{
    return {
        .environmentValue = qgetenv("POSITIONING_SOURCE"),
        .fakeMarker = QFile::exists(paths.marker(".fake_positioning")),
        .realMarker = QFile::exists(paths.marker(".real_positioning")),
    };
}

void launchTestEngine(const DevicePaths &paths)
{
    const QByteArray interpreter = QFile::encodeName(paths.root + u"/usr/bin/python2.6"_s);
    const QByteArray script = QFile::encodeName(paths.root + u"/usr/lib/lodestard-tests/fake_orv.py"_s);

    std::fflush(nullptr); // or the child writes the same lines again
    if (::fork() != 0)
        return; // a failed fork shows as an engine that never answers
    ::execlp(interpreter.constData(), "python2.6", script.constData(), static_cast<char *>(nullptr));
    qFatal(">>>>> Could not start fake orvd. <<<<<");
}
