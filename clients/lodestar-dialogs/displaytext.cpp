#include "displaytext.h"

#include <QChar>
#include <QList>

namespace {

constexpr char32_t ZeroWidthNonJoiner = 0x200C; // these two shape letters of some scripts
constexpr char32_t ZeroWidthJoiner = 0x200D;

// Look empty and are letters or marks all the same: Hangul fillers and an empty Braille cell.
bool looksEmpty(char32_t character)
{
    return character == 0x115F || character == 0x1160 || character == 0x3164 || character == 0xFFA0 ||
           character == 0x2800;
}

// What stands for a character on the screen; 0 for nothing.
char32_t shown(char32_t character)
{
    switch (QChar::category(character)) {
    case QChar::Other_Control:
    case QChar::Separator_Line:
    case QChar::Separator_Paragraph:
    case QChar::Separator_Space:
        return U' ';
    case QChar::Other_Format: // overrides, embeddings and isolates of the direction among them
        return character == ZeroWidthNonJoiner || character == ZeroWidthJoiner ? character : 0;
    default:
        return looksEmpty(character) ? U' ' : character;
    }
}

bool isVisible(char32_t character)
{
    return character != ZeroWidthNonJoiner && character != ZeroWidthJoiner && character != U' ';
}

} // namespace

QString displayText(const QString &untrusted, qsizetype longest)
{
    QList<char32_t> text;
    bool anythingVisible = false;
    for (const uint character : untrusted.toUcs4()) {
        const char32_t replaced = shown(character);
        const bool isRepeatedBlank = replaced == U' ' && (text.isEmpty() || text.constLast() == U' ');
        if (replaced == 0 || isRepeatedBlank)
            continue;
        if (text.size() == longest) {
            text.append(0x2026);
            break;
        }
        anythingVisible = anythingVisible || isVisible(replaced);
        text.append(replaced);
    }
    return anythingVisible ? QString::fromUcs4(text.constData(), text.size()).trimmed() : QString();
}
