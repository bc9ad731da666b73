#pragma once

#include <QDBusAbstractAdaptor>
#include <QDBusMessage>

class DialogServiceIF;

// The bus face of the dialogs. Each call is answered when its dialog is, so what the slots return
// is not sent.
class DialogAdaptor : public QDBusAbstractAdaptor
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.varn.location.ui")
public:
    // host is the object on the bus and owns the adaptor; handler outlives both.
    DialogAdaptor(QObject *host, DialogServiceIF *handler);

public slots: // all of these are on the bus, and so are their parameter names and their order
    bool privacyDialog(const QDBusMessage &call);
    int locationRequest(int type, bool defaultAccept, const QString &name, const QString &id,
                        const QDBusMessage &call);

private:
    DialogServiceIF *m_handler;
};

// The bus face of the application: it can be told to end.
class ApplicationAdaptor : public QDBusAbstractAdaptor
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.varn.MApplicationIf")
public:
    ApplicationAdaptor(QObject *host, DialogServiceIF *handler);

public slots:
    void exit(const QDBusMessage &call);

private:
    DialogServiceIF *m_handler;
};
