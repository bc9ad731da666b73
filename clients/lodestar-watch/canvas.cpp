#include "canvas.h"

#include "screen.h"

#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;

namespace {

// ECMA-48 "select graphic rendition".
QString escapeOf(Ink ink)
{
    switch (ink) {
    case Ink::Plain:
        return u"\x1b[0m"_s;
    case Ink::Faint:
        return u"\x1b[0;2m"_s;
    case Ink::Strong:
        return u"\x1b[0;1;36m"_s;
    case Ink::Good:
        return u"\x1b[0;1;32m"_s;
    case Ink::Warning:
        return u"\x1b[0;33m"_s;
    }
    return {};
}

} // namespace

Canvas::Canvas(const ScreenStyle &style)
    : m_columns(std::max(style.columns, 1))
    , m_rows(std::max(style.rows, 1))
    , m_colour(style.colour)
    , m_unicode(style.unicode)
    , m_cells(std::size_t(m_columns) * std::size_t(m_rows))
{
}

void Canvas::put(int row, int column, QChar character, Ink ink)
{
    if (row < 0 || row >= m_rows || column < 0 || column >= m_columns)
        return;
    m_cells[std::size_t(row) * std::size_t(m_columns) + std::size_t(column)] = {character, ink};
}

void Canvas::text(int row, int column, const QString &text, Ink ink)
{
    for (qsizetype i = 0; i < text.size(); ++i) {
        const bool plain = text.at(i).unicode() < 0x80;
        put(row, column + int(i), plain || m_unicode ? text.at(i) : u' ', ink);
    }
}

void Canvas::glyph(int row, int column, Glyph, Ink ink)
{
    put(row, column, m_unicode ? QChar(0x00B7) : u'.', ink);
}

void Canvas::rule(int row)
{
    for (int column = 0; column < m_columns; ++column)
        put(row, column, m_unicode ? QChar(0x2500) : u'-', Ink::Faint);
}

void Canvas::bar(int row, int column, int columns, double fraction, Ink ink)
{
    const int eighths = int(std::lround(std::clamp(fraction, 0.0, 1.0) * columns * 8));
    for (int i = 0; i < eighths / 8; ++i)
        put(row, column + i, m_unicode ? QChar(0x2588) : u'#', ink);
    if (eighths % 8 != 0 && m_unicode)
        put(row, column + eighths / 8, QChar(0x2590 - eighths % 8),
            ink); // U+2589 is seven eighths, U+258F one
}

QStringList Canvas::lines() const
{
    QStringList lines;
    for (int row = 0; row < m_rows; ++row) {
        QString line;
        Ink ink = Ink::Plain;
        for (int column = 0; column < m_columns; ++column) {
            const Cell &cell = m_cells[std::size_t(row) * std::size_t(m_columns) + std::size_t(column)];
            if (m_colour && cell.ink != ink && cell.character != u' ') {
                line += escapeOf(cell.ink);
                ink = cell.ink;
            }
            line += cell.character;
        }
        while (line.endsWith(u' '))
            line.chop(1);
        if (m_colour && ink != Ink::Plain)
            line += escapeOf(Ink::Plain);
        lines.append(line);
    }
    return lines;
}
