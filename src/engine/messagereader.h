#pragma once

#include "engine/messages.h"
#include "engine/packetview.h"

#include <QString>

#include <iterator>
#include <optional>

// One sub-block in the packet, its four header bytes included, cut to its own length.
struct SubBlock {
    quint16 id = 0;
    PacketView block{{}};
};

// The sub-blocks of a message, looked at in place: for (const SubBlock &b : wire::subBlocks(message)).
// The message's count says how many; a sub-block that is shorter than its header or longer than
// what is left ends the walk.
class SubBlocks
{
public:
    class Iterator
    {
    public:
        using value_type = SubBlock;
        using difference_type = std::ptrdiff_t;

        Iterator() = default;
        Iterator(std::span<const std::byte> rest, unsigned left);

        const SubBlock &operator*() const { return m_current; }
        const SubBlock *operator->() const { return &m_current; }
        Iterator &operator++();
        void operator++(int) { ++*this; }
        bool operator==(std::default_sentinel_t) const { return m_left == 0; }

    private:
        void look();

        std::span<const std::byte> m_rest; // from the current sub-block on
        unsigned m_left = 0;               // sub-blocks still to come, the current one included
        SubBlock m_current;
    };

    SubBlocks(std::span<const std::byte> bytes, unsigned count)
        : m_bytes(bytes)
        , m_count(count)
    {
    }

    Iterator begin() const { return {m_bytes, m_count}; }
    std::default_sentinel_t end() const { return {}; }

private:
    std::span<const std::byte> m_bytes;
    unsigned m_count;
};

// The satellite records of a sub-block, read one by one where they lie.
class SatelliteRecords
{
public:
    class Iterator
    {
    public:
        using value_type = SatelliteRecord;
        using difference_type = std::ptrdiff_t;

        Iterator() = default;
        explicit Iterator(std::span<const std::byte> rest)
            : m_rest(rest)
        {
        }

        SatelliteRecord operator*() const;
        Iterator &operator++();
        void operator++(int) { ++*this; }
        bool operator==(std::default_sentinel_t) const { return m_rest.empty(); }

    private:
        std::span<const std::byte> m_rest;
    };

    SatelliteRecords() = default;
    explicit SatelliteRecords(std::span<const std::byte> wholeRecords)
        : m_bytes(wholeRecords)
    {
    }

    std::size_t size() const;
    Iterator begin() const { return Iterator(m_bytes); }
    std::default_sentinel_t end() const { return {}; }

private:
    std::span<const std::byte> m_bytes;
};

// Bytes to structs. Nothing is read beyond the view; a message or sub-block that ends before its
// last fixed field gives nothing.
namespace wire {
std::optional<Header> readHeader(PacketView packet);

std::optional<GnssResponse> readGnssResponse(PacketView message);
std::optional<GnssNotification> readGnssNotification(PacketView message);
std::optional<SuplResponse> readSuplResponse(PacketView message);
std::optional<AssistanceDeleted> readAssistanceDeleted(PacketView message);
std::optional<PrivacyRegistered> readPrivacyRegistered(PacketView message);
std::optional<LocationRequest> readLocationRequest(PacketView message);

// Of the three messages that have them: notification, SUPL response, location request.
SubBlocks subBlocks(PacketView message);

std::optional<PositionBlock> readPosition(PacketView block);
std::optional<TimeBlock> readTime(PacketView block);
std::optional<VelocityBlock> readVelocity(PacketView block);
// As many records as the block says and really holds.
std::optional<SatelliteRecords> readSatellites(PacketView block);
// As many characters as the block says and really holds, up to the first zero; empty when there are none.
std::optional<QString> readClientName(PacketView block);
std::optional<QString> readClientId(PacketView block);
std::optional<bool> readDefaultAnswer(PacketView block);
} // namespace wire
