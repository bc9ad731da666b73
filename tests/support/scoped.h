#pragma once

#include <QByteArray>
#include <QtGlobal>

#include <optional>

#include <sys/stat.h>

// Sets an environment variable, or unsets it, until the end of the scope.
class ScopedVariable
{
public:
    ScopedVariable(const char *name, const std::optional<QByteArray> &value)
        : m_name(name)
    {
        if (qEnvironmentVariableIsSet(name))
            m_before = qgetenv(name);
        set(value);
    }
    ~ScopedVariable() { set(m_before); }
    ScopedVariable(const ScopedVariable &) = delete;
    ScopedVariable &operator=(const ScopedVariable &) = delete;

private:
    void set(const std::optional<QByteArray> &value) const
    {
        if (value)
            qputenv(m_name, *value);
        else
            qunsetenv(m_name);
    }

    const char *m_name;
    std::optional<QByteArray> m_before;
};

class ScopedUmask
{
public:
    explicit ScopedUmask(mode_t mask)
        : m_before(::umask(mask))
    {
    }
    ~ScopedUmask() { ::umask(m_before); }
    ScopedUmask(const ScopedUmask &) = delete;
    ScopedUmask &operator=(const ScopedUmask &) = delete;

private:
    mode_t m_before;
};
