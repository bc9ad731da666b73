#pragma once

#include <QString>

// A text from the network, fit to be shown: one line, without control characters, characters that
// change the reading direction and invisible ones. Longer texts end in an ellipsis after `longest`
// characters. Empty when nothing visible is left.
QString displayText(const QString &untrusted, qsizetype longest = 500);
