#pragma once

#include <QString>

// The user-visible text for `key`, from the English table in resources/Localizable.json.
// An unknown key returns the key itself, so a missing text shows up instead of vanishing.
QString VEKLocalizedString(const char *key);
QString VEKLocalizedString(const QString &key);
