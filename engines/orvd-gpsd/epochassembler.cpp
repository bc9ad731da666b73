#include "orvd-gpsd/epochassembler.h"

#include <algorithm>
#include <utility>

namespace orvdgpsd {
namespace {
bool holdsAll(const SkyReport &larger, const SkyReport &smaller)
{
    return std::ranges::all_of(smaller.satellites, [&larger](const Satellite &satellite) {
        return std::ranges::find(larger.satellites, satellite.prn, &Satellite::prn) !=
               larger.satellites.end();
    });
}

// gpsd sends a sky anew each time the receiver has added to it.
bool growsFrom(const SkyReport &later, const SkyReport &earlier)
{
    if (later.time || earlier.time)
        return later.time == earlier.time;
    return later.satellites.size() > earlier.satellites.size() && holdsAll(later, earlier);
}

bool isSamePlace(const FixReport &one, const FixReport &other)
{
    return one.latitude == other.latitude && one.longitude == other.longitude;
}

const SkyReport &fuller(const SkyReport &later, const SkyReport &earlier)
{
    return later.satellites.size() >= earlier.satellites.size() ? later : earlier;
}
} // namespace

std::optional<Epoch> EpochAssembler::add(const FixReport &report)
{
    m_late = false;
    m_fixSeen = report.hasFix;
    if (!m_open && isLate(report)) {
        m_late = report.knownFields() > m_doneFields;
        return std::nullopt;
    }
    std::optional<Epoch> done;
    if (m_open && !belongs(report))
        done = closeForNext();
    join(report);
    return done;
}

std::optional<Epoch> EpochAssembler::add(const SkyReport &report)
{
    m_late = false;
    std::optional<Epoch> done;
    if (!m_open) {
        const bool grows = m_leading && growsFrom(report, *m_leading);
        if (m_leading && !grows)
            done = skyAlone();
        m_leading = grows ? fuller(report, *m_leading) : report;
    } else if (startsNewSky(report)) {
        done = close(m_trailing ? std::exchange(m_trailing, std::nullopt) : m_sky);
        m_leading = report;
    } else if (m_trailing && growsFrom(report, *m_trailing)) {
        m_trailing = fuller(report, *m_trailing);
    } else {
        if (m_trailing)
            m_sky = std::move(m_trailing);
        m_trailing = report;
    }
    return done;
}

std::optional<Epoch> EpochAssembler::end()
{
    m_late = false;
    std::optional<Epoch> done;
    if (m_open) {
        if (m_fix && m_trailing)
            m_skyOrder = SkyOrder::After;
        done = close(m_trailing ? std::exchange(m_trailing, std::nullopt) : std::move(m_sky));
    } else if (m_leading) {
        done = skyAlone();
    }
    return done;
}

// Whether a report is one more of the open epoch.
bool EpochAssembler::belongs(const FixReport &report) const
{
    if (m_time && report.time)
        return *m_time == *report.time;
    if (m_time)
        return false;
    if (!report.hasFix || !m_fix)
        return report.hasFix == m_fix.has_value();
    return !report.time || isSamePlace(report, *m_fix); // the time is not known yet, or has just become so
}

bool EpochAssembler::isLate(const FixReport &report) const
{
    return report.time && report.time == m_doneTime && (m_doneFix || !report.hasFix);
}

// Without a fix nothing but the sky itself tells one epoch from the next.
bool EpochAssembler::startsNewSky(const SkyReport &report) const
{
    if (m_fix)
        return false;
    return m_trailing ? !growsFrom(report, *m_trailing) : m_sky.has_value();
}

void EpochAssembler::join(const FixReport &report)
{
    m_open = true;
    if (m_leading) {
        m_sky = std::exchange(m_leading, std::nullopt);
        m_skyOrder = SkyOrder::Before;
    }
    if (m_trailing) {
        m_sky = std::exchange(m_trailing, std::nullopt);
        m_skyOrder = SkyOrder::Among;
    }
    const bool timeBecomesKnown = report.time && !m_time;
    if (report.time)
        m_time = report.time;
    if (!report.hasFix)
        return;
    // Of two that know equally much the later one is taken; one without a time gives way to any with.
    if (!m_fix || timeBecomesKnown || report.knownFields() >= m_fix->knownFields())
        m_fix = report;
}

// Whether the sky between two epochs belongs to the first.
bool EpochAssembler::followsItsFix(const SkyReport &report) const
{
    if (report.time && m_time)
        return *report.time <= *m_time;
    switch (m_skyOrder) {
    case SkyOrder::Unknown: // no sky ever came before a fix
    case SkyOrder::After:
        return m_fix.has_value();
    case SkyOrder::Among:
        return !m_sky;
    case SkyOrder::Before:
        break;
    }
    return false;
}

Epoch EpochAssembler::skyAlone()
{
    return Epoch{std::nullopt, std::exchange(m_leading, std::nullopt), true};
}

Epoch EpochAssembler::close(std::optional<SkyReport> sky)
{
    Epoch epoch{std::exchange(m_fix, std::nullopt), std::move(sky), false};
    m_doneTime = std::exchange(m_time, std::nullopt);
    m_doneFix = epoch.fix.has_value();
    m_doneFields = epoch.fix ? epoch.fix->knownFields() : 0;
    m_sky.reset();
    m_open = false;
    return epoch;
}

Epoch EpochAssembler::closeForNext()
{
    if (m_trailing && followsItsFix(*m_trailing))
        m_sky = std::exchange(m_trailing, std::nullopt);
    m_leading = std::exchange(m_trailing, std::nullopt);
    return close(std::exchange(m_sky, std::nullopt));
}
} // namespace orvdgpsd
