#include "core/scheduler.h"

#include "core/busylog.h"

#include <QDebug>

#include <algorithm>

Scheduler::Scheduler(const Clock &clock, QObject *parent)
    : QObject(parent)
    , m_timer(this)
    , m_clock(clock)
{
    // A coarse timer may fire a twentieth early, which is far before the client counts as due.
    m_timer.setTimerType(Qt::PreciseTimer);
    connect(&m_timer, &QTimer::timeout, this, &Scheduler::nextStep);
}

void Scheduler::nextStep()
{
    qDebug("Scheduler::%s", __func__);
    const auto now = m_clock.monotonic();
    dumpClientTable(now);
    m_table.dropTaken();
    if (m_table.collectDue(now))
        emit reqSUPL();
    nextTimeStep();
}

void Scheduler::nextTimeStep()
{
    const auto wait = m_table.nextWait(m_clock.monotonic());
    qDebug("Scheduler::%s: next step in %lldms", __func__, qlonglong(wait.count()));
    m_timer.start(std::max(wait, ScheduleTable::ShortestWait));
}

int Scheduler::addClient(int id, int interval)
{
    qDebug("Scheduler::%s: id: %d, interval: %d", __func__, id, interval);
    m_table.append(id, interval, m_clock.monotonic());
    nextStep();
    // Kept: the timer is not planned anew here; the next step does it.
    if (m_table.rows().size() > 1)
        m_table.alignLast(m_clock.monotonic());
    dumpClientTable();
    return 0;
}

int Scheduler::setClientInterval(int id, int interval)
{
    qDebug("Scheduler::%s: id: %d, interval: %d", __func__, id, interval);
    if (m_table.intervalOf(id) != interval) {
        const QList<int> rows = m_table.rowsOf(id);
        for (const int row : rows) {
            m_table.setInterval(row, interval);
            m_table.align(row, m_clock.monotonic());
            nextTimeStep();
        }
    }
    dumpClientTable();
    return 0;
}

int Scheduler::removeClient(int id)
{
    qDebug("Scheduler::%s: id: %d", __func__, id);
    const QList<int> removed = m_table.remove(id);
    for (const int row : removed)
        qDebug() << "Removed index: " << row;
    if (m_table.isEmpty())
        m_timer.stop();
    else
        nextTimeStep();
    dumpClientTable();
    return 0;
}

QList<int> &Scheduler::takeDueClients()
{
    return m_table.takeDue();
}

void Scheduler::dumpClientTable() const
{
    dumpClientTable(m_clock.monotonic());
}

void Scheduler::dumpClientTable(ScheduleTable::Milliseconds now) const
{
    qCDebug(busyLog, "### Scheduler::%s: clients: %zu ###", __func__, m_table.rows().size());
    for (const ClientEntry &row : m_table.rows())
        qCDebug(busyLog, "id: %d, interval: %ds, elapsed: %lldms", row.id, row.interval,
                qlonglong(row.elapsed(now).count()));
}
