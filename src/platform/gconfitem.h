#pragma once

#include <QObject>
#include <QString>
#include <QVariant>

#include <memory>

class StoredKey;

// One key of the configuration store that all programs of the handset share. The build chooses the
// store: dconf, or the GConf library of older systems.
//
// A value is a bool, an int, a double or a QString; what the store holds of another type counts as
// unset.
class GConfItem : public QObject
{
    Q_OBJECT
public:
    explicit GConfItem(const QString &key, QObject *parent = nullptr); // a path: "/system/name"
    ~GConfItem() override;

    QVariant value() const; // invalid while the key is unset

    // Returns when the store has taken the value or refused it: value() tells which. A value that
    // is not valid unsets the key.
    void set(const QVariant &value);

signals:
    // From the event loop, whoever changed it; changes in quick succession may be told as one
    void valueChanged();

private:
    std::unique_ptr<StoredKey> m_key; // null when the store has no keys of that name
};
