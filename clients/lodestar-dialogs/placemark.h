#pragma once

#include <QWidget>

// The picture beside the question: a place on a map, in the palette's own colours.
class Placemark : public QWidget
{
    Q_OBJECT
public:
    explicit Placemark(int size, QWidget *parent = nullptr);

protected:
    void paintEvent(QPaintEvent *event) override;
};
