#include "core/scheduletable.h"

#include <algorithm>
#include <numeric>

void ScheduleTable::append(int id, int intervalSeconds, Milliseconds now)
{
    m_rows.push_back({id, intervalSeconds, now - std::chrono::seconds(intervalSeconds)});
}

QList<int> ScheduleTable::remove(int id)
{
    QList<int> gone;
    for (std::size_t row = 0; row < m_rows.size(); ++row) {
        if (m_rows[row].id != id)
            continue;
        m_rows.erase(m_rows.begin() + std::ptrdiff_t(row));
        gone.append(int(row)); // Kept: the row that moved here is not looked at
    }
    dueClients.removeOne(id);
    return gone;
}

QList<int> ScheduleTable::rowsOf(int id) const
{
    QList<int> found;
    for (std::size_t row = 0; row < m_rows.size(); ++row) {
        if (m_rows[row].id == id)
            found.append(int(row));
    }
    return found;
}

void ScheduleTable::setInterval(int row, int intervalSeconds)
{
    m_rows[std::size_t(row)].interval = intervalSeconds;
}

void ScheduleTable::align(int row, Milliseconds now)
{
    ClientEntry &aligned = m_rows[std::size_t(row)];
    const ClientEntry *reference = &m_rows.front();
    qint64 divisor = 1;
    for (const ClientEntry &other : m_rows) {
        if (&other == &aligned)
            continue;
        const qint64 common = std::gcd(qint64(other.interval), qint64(aligned.interval));
        if (common > divisor) {
            divisor = common;
            reference = &other;
        }
    }
    aligned.phaseStart = now - reference->elapsed(now) % std::chrono::seconds(divisor);
}

void ScheduleTable::dropTaken()
{
    if (dueClientsTaken)
        dueClients.clear();
    dueClientsTaken = false;
}

bool ScheduleTable::collectDue(Milliseconds now)
{
    bool began = false;
    for (ClientEntry &row : m_rows) {
        if (row.wait(now) >= Tolerance)
            continue;
        began = began || dueClients.isEmpty();
        if (!dueClients.contains(row.id))
            dueClients.append(row.id);
        row.phaseStart = now;
    }
    return began;
}

QList<int> &ScheduleTable::takeDue()
{
    dueClientsTaken = true;
    return dueClients;
}

ScheduleTable::Milliseconds ScheduleTable::nextWait(Milliseconds now) const
{
    Milliseconds shortest = Day;
    for (const ClientEntry &row : m_rows)
        shortest = std::min(shortest, row.wait(now));
    return shortest;
}

int ScheduleTable::intervalOf(int id) const
{
    const auto found =
        std::find_if(m_rows.begin(), m_rows.end(), [id](const ClientEntry &row) { return row.id == id; });
    return found == m_rows.end() ? -1 : found->interval;
}
