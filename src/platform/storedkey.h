#pragma once

#include <QByteArray>
#include <QVariant>

#include <memory>

class GConfItem;

// The side of a GConfItem that differs from store to store: one key of it, which is listened to.
class StoredKey
{
public:
    StoredKey() = default;
    virtual ~StoredKey() = default;
    StoredKey(const StoredKey &) = delete;
    StoredKey &operator=(const StoredKey &) = delete;

    // In the store that is linked. Null when it has no keys of that name. From the event loop the
    // item's valueChanged() is emitted.
    static std::unique_ptr<StoredKey> open(GConfItem &item, const QByteArray &name);

    virtual QVariant read() const = 0; // invalid: unset, or of a type that no item has
    // A bool, an int, a double or a QString; unsets the key when it is invalid. What the key holds
    // already is not written again.
    virtual void write(const QVariant &value) = 0;
};
