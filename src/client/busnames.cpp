#include "client/busnames.h"

#include <QList>

#include <algorithm>

namespace {

constexpr qsizetype LongestBusName = 255;

bool isDigit(QChar c)
{
    return c >= u'0' && c <= u'9';
}

bool isWordCharacter(QChar c)
{
    return isDigit(c) || (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') || c == u'_';
}

} // namespace

bool isBusName(QStringView name)
{
    const bool unique = name.startsWith(u':');
    if (name.isEmpty() || name.size() > LongestBusName)
        return false;
    const QList<QStringView> elements = name.sliced(unique ? 1 : 0).split(u'.');
    return elements.size() >= 2 &&
           std::all_of(elements.begin(), elements.end(), [unique](QStringView element) {
               return !element.isEmpty() && (unique || !isDigit(element.front())) &&
                      std::all_of(element.begin(), element.end(),
                                  [](QChar c) { return isWordCharacter(c) || c == u'-'; });
           });
}

bool isObjectPath(QStringView path)
{
    if (path == u"/")
        return true;
    if (!path.startsWith(u'/'))
        return false;
    const QList<QStringView> elements = path.sliced(1).split(u'/');
    return std::all_of(elements.begin(), elements.end(), [](QStringView element) {
        return !element.isEmpty() && std::all_of(element.begin(), element.end(), isWordCharacter);
    });
}
