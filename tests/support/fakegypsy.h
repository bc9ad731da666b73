#pragma once

#include "gypsy/satellitedata.h"

#include <QList>
#include <QString>
#include <QStringList>
#include <QThread>
#include <QVariantList>

#include <memory>

// Gypsy's server and its devices, on the system bus of the test. It lives on a thread of its own,
// since its callers block.
class FakeGypsy
{
public:
    FakeGypsy();
    ~FakeGypsy();
    FakeGypsy(const FakeGypsy &) = delete;
    FakeGypsy &operator=(const FakeGypsy &) = delete;

    // Where Create puts the device of an address.
    static QString pathOf(const QString &address);

    // "Create 00:1A:...", "Start /org/freedesktop/Gypsy/00_1A_..." since the last time
    QStringList takeCalls();
    bool wasIntrospected() const;

    void setFixStatus(int status); // what GetFixStatus answers
    // From now on this method answers with an error, with a text in place of its result, or not at all.
    void refuse(const QString &method, const QString &text);
    void misanswer(const QString &method);
    void ignore(const QString &method);
    void obey(const QString &method);
    void forgetDevices(); // as a Gypsy that was started anew

    // Signals of a device; Gypsy's own broadcasts.
    void fixStatus(const QString &path, int status);
    void connectionStatus(const QString &path, bool connected);
    void position(const QString &path, int fields, int timestamp, double latitude, double longitude,
                  double altitude);
    void course(const QString &path, int fields, int timestamp, double speed, double direction, double climb);
    void accuracy(const QString &path, int fields, double pdop, double hdop, double vdop);
    void satellites(const QString &path, const QList<SatelliteData> &list);

private:
    class Object;

    template <typename Work>
    void run(Work work);
    void emitSignal(const QString &path, const QString &interface, const QString &name,
                    const QVariantList &arguments);

    QThread m_thread;
    std::unique_ptr<Object> m_object;
};
