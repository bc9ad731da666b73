#pragma once

#include "countdown.h"
#include "platform/clock.h"
#include "question.h"

#include <QDialog>
#include <QTimer>

#include <chrono>
#include <optional>

class QLabel;
class QProgressBar;
class QPushButton;
class QScrollArea;

// Shows one question until it is answered, closed, or out of time, and finishes once with Accepted
// or Rejected.
class QuestionDialog : public QDialog
{
    Q_OBJECT
public:
    // Keys and clicks of the first moment were meant for whatever was there before.
    static constexpr std::chrono::milliseconds UnreadTime{500};

    explicit QuestionDialog(const Question &question, const Clock &clock = Clock::system());

    QPushButton *acceptButton() const { return m_accept; }
    QPushButton *declineButton() const { return m_decline; }
    QString timeLeftText() const;

public slots:
    void accept() override;
    void reject() override;
    void tick(); // looks at the clock; runs whenever a second is over

protected:
    void showEvent(QShowEvent *event) override;
    void closeEvent(QCloseEvent *event) override;

private:
    QWidget *makePage();
    QWidget *makeHeadline();
    QWidget *makeFields();
    QWidget *makeTimeLeft();
    QWidget *makeButtons();
    void fitToScreen();
    bool isRead() const;

    const Question m_question;
    const Clock &m_clock;
    std::optional<Countdown> m_countdown;
    std::chrono::milliseconds m_shownAt{0};
    QTimer m_ticker;
    QScrollArea *m_scroll = nullptr;
    QLabel *m_timeLeft = nullptr;
    QProgressBar *m_bar = nullptr;
    QPushButton *m_accept = nullptr;
    QPushButton *m_decline = nullptr;
};
