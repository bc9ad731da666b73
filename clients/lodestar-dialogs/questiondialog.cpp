#include "questiondialog.h"

#include "elidedlabel.h"
#include "placemark.h"

#include <QCloseEvent>
#include <QDialogButtonBox>
#include <QFrame>
#include <QGridLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QScreen>
#include <QScrollArea>
#include <QVBoxLayout>

#include <algorithm>

namespace {

constexpr int BarSteps = 1000;
constexpr int LineLength = 76; // average characters: comfortable to read

QLabel *paragraph(const QString &text)
{
    auto *label = new QLabel(text);
    label->setTextFormat(Qt::PlainText);
    label->setWordWrap(true);
    return label;
}

// The least that shows everything, with the scrolled page as high as it was told to be.
int heightAt(const QLayout &layout, int width)
{
    return layout.hasHeightForWidth() ? layout.totalMinimumHeightForWidth(width)
                                      : layout.totalMinimumSize().height();
}

} // namespace

QuestionDialog::QuestionDialog(const Question &question, const Clock &clock)
    : QDialog(nullptr,
              Qt::Dialog | Qt::WindowTitleHint | Qt::WindowCloseButtonHint | Qt::WindowStaysOnTopHint)
    , m_question(question)
    , m_clock(clock)
{
    setWindowTitle(question.title);
    setAccessibleName(question.title);
    setAccessibleDescription(question.spoken());

    const int em = fontMetrics().height();
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(em * 3 / 2, em * 3 / 2, em * 3 / 2, em * 5 / 4);
    layout->setSpacing(em);
    layout->addWidget(makePage(), 1);
    if (question.hasTimeLimit())
        layout->addWidget(makeTimeLeft());
    layout->addWidget(makeButtons());

    setTabOrder(m_scroll, m_accept);
    setTabOrder(m_accept, m_decline);
    QPushButton *preferred = question.acceptIsDefault ? m_accept : m_decline;
    preferred->setDefault(true);
    preferred->setFocus();
    m_ticker.setSingleShot(true);
    m_ticker.setTimerType(Qt::PreciseTimer);
    connect(&m_ticker, &QTimer::timeout, this, &QuestionDialog::tick);
    fitToScreen();
}

QString QuestionDialog::timeLeftText() const
{
    return m_timeLeft ? m_timeLeft->text() : QString();
}

QWidget *QuestionDialog::makePage()
{
    const int em = fontMetrics().height();
    auto *page = new QWidget;
    auto *layout = new QVBoxLayout(page);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(em * 3 / 4);
    layout->addWidget(makeHeadline());
    if (!m_question.fields.isEmpty())
        layout->addWidget(makeFields());
    for (const QString &text : m_question.explanation)
        layout->addWidget(paragraph(text));
    layout->addStretch(1);

    m_scroll = new QScrollArea;
    m_scroll->setFrameShape(QFrame::NoFrame);
    m_scroll->setWidgetResizable(true);
    m_scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_scroll->setWidget(page);
    return m_scroll;
}

QWidget *QuestionDialog::makeHeadline()
{
    auto *headline = paragraph(m_question.headline);
    QFont font = headline->font();
    font.setPointSizeF(font.pointSizeF() * 1.35);
    font.setWeight(QFont::DemiBold);
    headline->setFont(font);

    auto *row = new QWidget;
    auto *layout = new QHBoxLayout(row);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(fontMetrics().height());
    layout->addWidget(new Placemark(fontMetrics().height() * 3));
    layout->addWidget(headline, 1);
    return row;
}

QWidget *QuestionDialog::makeFields()
{
    const int em = fontMetrics().height();
    auto *panel = new QFrame;
    panel->setFrameShape(QFrame::StyledPanel);
    panel->setBackgroundRole(QPalette::Base);
    panel->setAutoFillBackground(true);
    auto *grid = new QGridLayout(panel);
    grid->setContentsMargins(em, em * 3 / 4, em, em * 3 / 4);
    grid->setHorizontalSpacing(em);
    grid->setVerticalSpacing(em / 2);
    grid->setColumnStretch(1, 1);
    for (int row = 0; row < m_question.fields.size(); ++row) {
        const Question::Field &field = m_question.fields.at(row);
        auto *label = new QLabel(field.label);
        label->setTextFormat(Qt::PlainText);
        auto *value = new ElidedLabel(field.value);
        value->setAccessibleName(field.label + u' ' + field.value);
        QFont font = value->font();
        font.setBold(field.isKnown && row == 0);
        font.setItalic(!field.isKnown);
        value->setFont(font);
        grid->addWidget(label, row, 0);
        grid->addWidget(value, row, 1);
    }
    return panel;
}

QWidget *QuestionDialog::makeTimeLeft()
{
    m_timeLeft =
        paragraph(Questions::timeLeft(m_question.acceptIsDefault, int(m_question.timeLimit.count())));
    m_bar = new QProgressBar;
    m_bar->setRange(0, BarSteps);
    m_bar->setValue(BarSteps);
    m_bar->setTextVisible(false);
    m_bar->setFixedHeight(fontMetrics().height() / 2);
    m_bar->setAccessibleName(tr("Time left for an answer"));

    auto *box = new QWidget;
    auto *layout = new QVBoxLayout(box);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(fontMetrics().height() / 2);
    layout->addWidget(m_timeLeft);
    layout->addWidget(m_bar);
    return box;
}

QWidget *QuestionDialog::makeButtons()
{
    auto *box = new QDialogButtonBox;
    m_accept = box->addButton(m_question.accept, QDialogButtonBox::AcceptRole);
    m_decline = box->addButton(m_question.decline, QDialogButtonBox::RejectRole);
    m_accept->setAccessibleDescription(m_question.acceptMeans);
    m_decline->setAccessibleDescription(m_question.declineMeans);
    for (QPushButton *button : {m_accept, m_decline}) {
        button->setMinimumSize(fontMetrics().height() * 7, fontMetrics().height() * 2);
        button->setAutoDefault(true); // Enter presses the button that has the focus
    }
    connect(box, &QDialogButtonBox::accepted, this, &QuestionDialog::accept);
    connect(box, &QDialogButtonBox::rejected, this, &QuestionDialog::reject);
    return box;
}

// As high as the text needs; where the screen is too low for it, the text can be scrolled and the
// buttons stay in sight.
void QuestionDialog::fitToScreen()
{
    const QSize available = screen()->availableSize() * 0.95;
    const int margins = layout()->contentsMargins().left() + layout()->contentsMargins().right();
    const int width = std::min(fontMetrics().averageCharWidth() * LineLength, available.width() - margins);
    const int height = heightAt(*m_scroll->widget()->layout(), width);
    m_scroll->setMinimumSize(width, height);
    const int tooHigh = std::max(0, heightAt(*layout(), width + margins) - available.height());
    m_scroll->setMinimumHeight(std::max(fontMetrics().height() * 3, height - tooHigh));
    m_scroll->setFocusPolicy(tooHigh > 0 ? Qt::TabFocus : Qt::NoFocus);
    resize(width + margins, heightAt(*layout(), width + margins));
}

void QuestionDialog::accept()
{
    if (isRead())
        QDialog::accept();
}

void QuestionDialog::reject()
{
    if (isRead())
        QDialog::reject();
}

void QuestionDialog::tick()
{
    if (!m_countdown || !isVisible())
        return;
    const auto now = m_clock.monotonic();
    const int seconds = m_countdown->secondsLeft(now);
    const QString text = Questions::timeLeft(m_question.acceptIsDefault, seconds);
    m_timeLeft->setText(text);
    m_bar->setValue(int(m_countdown->share(now) * BarSteps));
    // Screen readers follow the accessible name, which changes less often than the text.
    if (isSpoken(seconds))
        m_timeLeft->setAccessibleName(text);
    if (m_countdown->isOver(now))
        done(m_question.acceptIsDefault ? Accepted : Rejected);
    else
        m_ticker.start(m_countdown->untilNextChange(now));
}

void QuestionDialog::showEvent(QShowEvent *event)
{
    QDialog::showEvent(event);
    if (event->spontaneous())
        return;
    m_shownAt = m_clock.monotonic();
    if (m_question.hasTimeLimit()) {
        m_countdown.emplace(m_question.timeLimit, m_shownAt);
        m_timeLeft->setAccessibleName(m_timeLeft->text());
        tick();
    }
}

void QuestionDialog::closeEvent(QCloseEvent *event)
{
    event->accept();
    done(Rejected);
}

bool QuestionDialog::isRead() const
{
    return m_clock.monotonic() - m_shownAt >= UnreadTime;
}
