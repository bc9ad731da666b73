#pragma once

#include <QByteArray>
#include <QtEndian>

#include <cstddef>
#include <span>

// One place in a message or block: the type says width and sign, the value says where it starts.
template <typename T>
struct Field {
    std::size_t offset;

    // The same field of a record that starts later.
    constexpr Field at(std::size_t start) const noexcept { return {start + offset}; }
};

// Reads big-endian fields out of a packet that somebody else wrote. A field that does not fit
// reads as 0 and clears ok(), for good; look at ok() once, after the last field.
class PacketView
{
public:
    constexpr explicit PacketView(std::span<const std::byte> bytes) noexcept
        : m_bytes(bytes)
    {
    }

    // The bytes are only looked at: the array has to outlive the view.
    static PacketView of(const QByteArray &packet) noexcept
    {
        return PacketView(std::as_bytes(std::span(packet.constData(), std::size_t(packet.size()))));
    }
    static PacketView of(QByteArray &&) = delete;

    template <typename T>
    [[nodiscard]] T get(Field<T> field) noexcept
    {
        const auto raw = bytes(field.offset, sizeof(T));
        return raw.empty() ? T{0} : qFromBigEndian<T>(raw.data());
    }

    // One count in the protocol travels the other way round, see layout::clientId.
    [[nodiscard]] quint16 getLittleEndian(Field<quint16> field) noexcept
    {
        const auto raw = bytes(field.offset, sizeof(quint16));
        return raw.empty() ? quint16{0} : qFromLittleEndian<quint16>(raw.data());
    }

    // Exactly count bytes, or none at all and ok() cleared.
    [[nodiscard]] std::span<const std::byte> bytes(std::size_t offset, std::size_t count) noexcept
    {
        if (offset > m_bytes.size() || m_bytes.size() - offset < count) {
            m_ok = false;
            return {};
        }
        return m_bytes.subspan(offset, count);
    }

    // From offset to the end; empty, and ok() cleared, when the packet ends before offset.
    [[nodiscard]] PacketView from(std::size_t offset) noexcept
    {
        if (offset > m_bytes.size()) {
            m_ok = false;
            return PacketView({});
        }
        return PacketView(m_bytes.subspan(offset));
    }

    [[nodiscard]] bool ok() const noexcept { return m_ok; }
    [[nodiscard]] std::size_t size() const noexcept { return m_bytes.size(); }
    [[nodiscard]] std::span<const std::byte> all() const noexcept { return m_bytes; }

private:
    std::span<const std::byte> m_bytes;
    bool m_ok = true;
};
