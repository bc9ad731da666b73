#pragma once

#include "core/scheduletable.h"
#include "platform/clock.h"

#include <QObject>
#include <QTimer>

// Wakes up when the next client of network positions falls due. It logs, asks the clock and owns the
// timer; who is due is the table's business.
class Scheduler : public QObject
{
    Q_OBJECT
public:
    explicit Scheduler(const Clock &clock = Clock::system(), QObject *parent = nullptr);

    // Intervals in s. The new client is due at once: the request for its position is made before
    // this returns, unless a batch is waiting. Ids are not checked for duplicates. Always 0.
    int addClient(int id, int interval);
    // Takes the client out of the batch as well. Always 0.
    int removeClient(int id);
    int setClientInterval(int id, int interval);
    // The clients that wait for the position that has arrived. A caller copies the list: the next
    // step empties it. Until the batch is taken no other one is asked for.
    QList<int> &takeDueClients();
    bool hasClient(int id) const { return !m_table.rowsOf(id).isEmpty(); }
    int intervalOf(int id) const { return m_table.intervalOf(id); } // s, -1 when absent

public slots:
    void nextStep();

signals:
    // A batch of due clients began: it wants a network position.
    void reqSUPL();

private:
    void nextTimeStep();
    void dumpClientTable() const;
    void dumpClientTable(ScheduleTable::Milliseconds now) const;

    ScheduleTable m_table;
    QTimer m_timer; // runs while there are rows
    const Clock &m_clock;
};
