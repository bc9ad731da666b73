#pragma once

#include <QString>
#include <QStringList>

#include <vector>

struct ScreenStyle;

enum class Ink { Plain, Faint, Strong, Good, Warning };
enum class Glyph { Dot };

// A grid of characters with colours. Whatever falls outside is cut off.
class Canvas
{
public:
    explicit Canvas(const ScreenStyle &style);

    int columns() const { return m_columns; }
    int rows() const { return m_rows; }

    void text(int row, int column, const QString &text, Ink ink);
    void glyph(int row, int column, Glyph glyph, Ink ink);
    void rule(int row);
    // A horizontal bar; `fraction` of `columns` is filled, in eighths of a character where the terminal can.
    void bar(int row, int column, int columns, double fraction, Ink ink);

    QStringList lines() const;

private:
    struct Cell {
        QChar character = QChar::fromLatin1(' ');
        Ink ink = Ink::Plain;
    };
    void put(int row, int column, QChar character, Ink ink);

    int m_columns;
    int m_rows;
    bool m_colour;
    bool m_unicode;
    std::vector<Cell> m_cells;
};
