#pragma once

#include <QString>

// Makes sure that `path` exists and that its owner alone can read and write it, whatever the umask.
// Of the directories that are missing, the last two get mode 0700 and those above mode 0755; what
// exists keeps its directory modes. False when the file could not be made.
bool ensurePrivateFile(const QString &path);
