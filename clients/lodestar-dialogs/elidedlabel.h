#pragma once

#include <QLabel>

// A text in one line that ends in an ellipsis where it does not fit; then the tool tip has all of
// it. Screen readers get the whole text in any case.
class ElidedLabel : public QLabel
{
    Q_OBJECT
public:
    explicit ElidedLabel(const QString &text, QWidget *parent = nullptr);

    bool isElided() const;
    QSize minimumSizeHint() const override;

protected:
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    QString fitting() const;
};
