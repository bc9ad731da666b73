#pragma once

#include <QList>

#include <chrono>
#include <vector>

// One row of the table.
struct ClientEntry {
    using Milliseconds = std::chrono::milliseconds;

    int id;
    int interval;            // s
    Milliseconds phaseStart; // the current interval is counted from here

    Milliseconds elapsed(Milliseconds now) const { return now - phaseStart; }
    // Until the row falls due; negative when it is overdue.
    Milliseconds wait(Milliseconds now) const { return std::chrono::seconds(interval) - elapsed(now); }
};

// Who is due for a network position, and when the next one will be. Every question takes the time,
// which never goes back; nothing here reads a clock. One client may have several rows.
class ScheduleTable
{
public:
    using Milliseconds = ClientEntry::Milliseconds; // 64 bits: no wrap at midnight or after 24 days
    static constexpr Milliseconds Day{86400000};
    static constexpr Milliseconds Tolerance{100}; // a timer may fire a little early
    static constexpr Milliseconds ShortestWait{50};

    // The new row stands last and is due at once.
    void append(int id, int intervalSeconds, Milliseconds now);
    // The numbers that the rows had when they went. A row that moves into a removed one's place is
    // passed over, so of two neighbours with the same id one stays.
    QList<int> remove(int id);
    QList<int> rowsOf(int id) const; // numbers from 0, as the functions below take them
    void setInterval(int row, int intervalSeconds);
    // Puts the row in phase with the one it shares the greatest divisor with: one request then serves
    // both. Without a common divisor, with the first row's full seconds.
    void align(int row, Milliseconds now);
    void alignLast(Milliseconds now) { align(int(m_rows.size()) - 1, now); }

    // Empties a batch that was handed out.
    void dropTaken();
    // Adds who is due to the batch, each once, and starts their intervals anew; true when a batch began.
    bool collectDue(Milliseconds now);
    // Hands the batch out. It stays until the next dropTaken().
    QList<int> &takeDue();
    // Until the next row falls due, a day at most; negative when one is overdue.
    Milliseconds nextWait(Milliseconds now) const;

    // s, of the first row; -1 when there is none.
    int intervalOf(int id) const;
    bool isEmpty() const { return m_rows.empty(); }
    const std::vector<ClientEntry> &rows() const { return m_rows; }

private:
    std::vector<ClientEntry> m_rows;
    QList<int> dueClients;
    bool dueClientsTaken = true;
};
