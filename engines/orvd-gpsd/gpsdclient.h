#pragma once

#include "orvd-gpsd/reports.h"

#include <QByteArray>
#include <QObject>

#include <chrono>
#include <memory>

class QSocketNotifier;
struct gps_data_t;

// One connection to gpsd, through libgps.
namespace orvdgpsd {
struct GpsdAddress {
    QByteArray host = "localhost";
    QByteArray port = "2947";
    QByteArray device; // empty: whatever gpsd has
};

class GpsdClient : public QObject
{
    Q_OBJECT
public:
    explicit GpsdClient(GpsdAddress address);
    ~GpsdClient() override;

    // False, with the reason in errorText(), when gpsd cannot be reached.
    [[nodiscard]] bool open();
    void close(); // says nothing
    bool isOpen() const { return m_gps != nullptr; }
    QString errorText() const { return m_error; }

    void readAvailable(); // everything that has arrived, without waiting

signals:
    void fixReported(const orvdgpsd::FixReport &report);
    void skyReported(const orvdgpsd::SkyReport &report);
    void lost(); // gpsd ended the connection

private:
    void dispatch();

    GpsdAddress m_address;
    std::unique_ptr<gps_data_t> m_gps;
    std::unique_ptr<QSocketNotifier> m_notifier;
    QString m_error;
};
} // namespace orvdgpsd
