#pragma once

class QLocale;
class QTranslator;

// Loads the texts of this language, or else English with its plural forms. The translator must
// then be installed in the application.
void loadTranslation(QTranslator &translator, const QLocale &locale);
