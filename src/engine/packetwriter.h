#pragma once

#include "engine/layout.h"
#include "engine/packetview.h"

#include <QByteArray>
#include <QtEndian>

#include <algorithm>
#include <utility>

// Lays fields of the layout table into a zeroed buffer of a fixed size. What does not fit is a
// mistake of the caller, not of a peer: it asserts, and writes nothing.
class PacketWriter
{
public:
    // A message or sub-block: both begin with an id and their own total length.
    PacketWriter(quint16 id, std::size_t length)
        : m_bytes(qsizetype(length), '\0')
    {
        set(layout::header::id, id);
        set(layout::header::length, quint16(length));
    }

    template <typename T>
    PacketWriter &set(Field<T> field, T value)
    {
        if (fits(field.offset, sizeof(T)))
            qToBigEndian<T>(value, m_bytes.data() + field.offset);
        return *this;
    }

    PacketWriter &setLittleEndian(Field<quint16> field, quint16 value)
    {
        if (fits(field.offset, sizeof(quint16)))
            qToLittleEndian<quint16>(value, m_bytes.data() + field.offset);
        return *this;
    }

    PacketWriter &setBytes(std::size_t offset, QByteArrayView value)
    {
        if (fits(offset, std::size_t(value.size())))
            std::copy(value.begin(), value.end(), m_bytes.begin() + qsizetype(offset));
        return *this;
    }

    // Behind everything that is there; the length in the header follows.
    PacketWriter &append(QByteArrayView value)
    {
        m_bytes.append(value);
        return set(layout::header::length, quint16(m_bytes.size()));
    }

    const QByteArray &bytes() const { return m_bytes; }
    [[nodiscard]] QByteArray take() { return std::move(m_bytes); }

private:
    bool fits(std::size_t offset, std::size_t count) const
    {
        const auto size = std::size_t(m_bytes.size());
        const bool inside = offset <= size && size - offset >= count;
        Q_ASSERT(inside);
        return inside;
    }

    QByteArray m_bytes;
};
