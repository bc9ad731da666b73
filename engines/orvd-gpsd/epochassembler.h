#pragma once

#include "orvd-gpsd/reports.h"

// Joins the reports of one epoch, however many gpsd makes of it, into one. gpsd names no end of an
// epoch, so it ends when a report of the next one arrives, or when the caller says so: after a while
// of silence, or at the end of the stream. Every epoch comes out once; a report of an epoch that has
// come out already is dropped.
//
// A fix can come before the receiver knows the time: such reports belong to the epoch with a time that
// follows them at the same place, or are an epoch of their own.
//
// Satellites come before the fix they belong to, between two reports of it, or after it, depending on
// the receiver, often without a time. Each sky goes to the epoch it stands in; one that stands
// between two epochs goes by its time, else by the order that this receiver keeps. A sky that no fix
// follows is an epoch of its own.
namespace orvdgpsd {
class EpochAssembler
{
public:
    // Both give the epoch that this report ended.
    [[nodiscard]] std::optional<Epoch> add(const FixReport &report);
    [[nodiscard]] std::optional<Epoch> add(const SkyReport &report);
    [[nodiscard]] std::optional<Epoch> end();

    bool isPending() const { return m_open || m_leading; } // end() would give something
    // A sky has come since the last fix and none after it: the next fix may be its own.
    bool isSkyWaiting() const { return !m_open && m_leading && m_fixSeen; }
    // The last report came after its epoch had come out, and knew more: the silence was too short.
    bool wasLate() const { return m_late; }

private:
    // Where this receiver reports the sky, as seen last, among the fix reports of an epoch.
    enum class SkyOrder { Unknown, Before, Among, After };

    bool belongs(const FixReport &report) const;
    bool isLate(const FixReport &report) const;
    bool startsNewSky(const SkyReport &report) const;
    bool followsItsFix(const SkyReport &report) const;
    void join(const FixReport &report);
    Epoch skyAlone();
    Epoch close(std::optional<SkyReport> sky);
    Epoch closeForNext();

    bool m_open = false; // a report of the epoch has come
    std::optional<ReceiverTime> m_time;
    std::optional<FixReport> m_fix;
    std::optional<SkyReport> m_sky;      // belongs to the open epoch
    std::optional<SkyReport> m_trailing; // came after the open epoch's last report
    std::optional<SkyReport> m_leading;  // waits for the epoch to come

    std::optional<ReceiverTime> m_doneTime; // of the epoch that came out last
    int m_doneFields = 0;
    bool m_doneFix = false;
    bool m_fixSeen = false; // the last fix report had one
    SkyOrder m_skyOrder = SkyOrder::Unknown;
    bool m_late = false;
};
} // namespace orvdgpsd
