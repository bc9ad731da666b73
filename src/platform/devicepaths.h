#pragma once

#include <QString>

// Every fixed place in the file system the daemon reads or writes. `root` is empty on a device;
// a test points it at a temporary directory.
struct DevicePaths {
    QString root;

    QString engineSocket() const;
    QString testEngineSocket() const;
    QString marker(const char *name) const; // developer marker files in the handset user's home
    // Below the home of the user that USER names ("root" means the handset user); empty when USER is unset.
    QString userSettings() const;
    QString operatorSettings() const;
    QString
    documentsDirectory() const;   // "MyDocs/" with its trailing slash; USER unset means the handset user
    QString logDirectory() const; // documentsDirectory() + "location_logs", no trailing slash
    QString
    systemInformation() const; // directory of the system-information library's keys, no trailing slash
};
