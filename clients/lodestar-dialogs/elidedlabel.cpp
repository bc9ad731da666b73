#include "elidedlabel.h"

#include <QPainter>
#include <QStyle>

using namespace Qt::StringLiterals;

ElidedLabel::ElidedLabel(const QString &text, QWidget *parent)
    : QLabel(text, parent)
{
    setTextFormat(Qt::PlainText);
    setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Fixed);
}

bool ElidedLabel::isElided() const
{
    return fitting() != text();
}

QSize ElidedLabel::minimumSizeHint() const
{
    return {fontMetrics().averageCharWidth() * 8, fontMetrics().height()};
}

void ElidedLabel::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setLayoutDirection(layoutDirection());
    const int alignment = int(QStyle::visualAlignment(layoutDirection(), Qt::AlignLeft | Qt::AlignVCenter));
    style()->drawItemText(&painter, contentsRect(), alignment | Qt::TextSingleLine, palette(), isEnabled(),
                          fitting(), foregroundRole());
}

void ElidedLabel::resizeEvent(QResizeEvent *event)
{
    QLabel::resizeEvent(event);
    // As rich text a tool tip breaks its lines; so what the text holds must not count as markup.
    setToolTip(isElided() ? u"<qt>"_s + text().toHtmlEscaped() + u"</qt>"_s : QString());
}

QString ElidedLabel::fitting() const
{
    return fontMetrics().elidedText(text(), Qt::ElideRight, contentsRect().width());
}
