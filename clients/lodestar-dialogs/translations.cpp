#include "translations.h"

#include <QLocale>
#include <QTranslator>

using namespace Qt::StringLiterals;

void loadTranslation(QTranslator &translator, const QLocale &locale)
{
    if (!translator.load(locale, u"lodestar-dialogs"_s, u"_"_s, u":/translations"_s) &&
        !translator.load(u":/translations/lodestar-dialogs_en.qm"_s))
        qWarning("no texts for any language");
}
