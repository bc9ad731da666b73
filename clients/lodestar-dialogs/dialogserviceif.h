#pragma once

class QDBusMessage;
class QString;

// What the bus face of the dialog service asks for. Every call is answered later, through the
// message that brought it.
class DialogServiceIF
{
public:
    virtual ~DialogServiceIF() = default;
    virtual void askPrivacy(const QDBusMessage &call) = 0;
    virtual void askLocation(int type, bool defaultAccept, const QString &name, const QString &id,
                             const QDBusMessage &call) = 0;
    virtual void leave(const QDBusMessage &call) = 0;
};
