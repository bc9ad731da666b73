// What a client gets: the bytes of a fix, or of a satellite list, tried as both.
#include "client/fixstream.h"
#include "target.h"

#include <QGeoPositionInfo>
#include <QGeoSatelliteInfo>

namespace {
constexpr qsizetype FixBytes = 37; // without attributes
constexpr qsizetype AttributeBytes = 12;

const char *fix(QByteArrayView bytes)
{
    const auto read = FixStream::readFix(bytes);
    if (!read)
        return nullptr;
    if (bytes.size() < FixBytes || (bytes.size() - FixBytes) % AttributeBytes != 0)
        return "a fix is as long as its attributes make it";
    if (FixStream::readFix(bytes.chopped(1)))
        return "a fix without its last byte is none";
    const QByteArray written = FixStream::writeFix(*read);
    if (written.size() > bytes.size())
        return "what is written was read";
    if (!FixStream::readFix(written))
        return "a fix that was written can be read";
    return nullptr;
}

const char *satellites(QByteArrayView bytes)
{
    const auto read = FixStream::readSatellites(bytes);
    if (!read)
        return nullptr;
    if (!bytes.isEmpty() && FixStream::readSatellites(bytes.chopped(1)))
        return "a list without its last byte is none";
    const QByteArray written = FixStream::writeSatellites(*read);
    const auto again = FixStream::readSatellites(written);
    if (!again || FixStream::writeSatellites(*again) != written)
        return "a list that was written reads as it was";
    return nullptr;
}
} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const QByteArrayView bytes(data, qsizetype(size));
    fuzz::require(fix(bytes));
    fuzz::require(satellites(bytes));
    return 0;
}
