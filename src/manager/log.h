#pragma once

#include <QLoggingCategory>

/// Qt's default category, which all messages use. The category macros (qCDebug and the others) do
/// not evaluate the arguments of a filtered message. The category is looked up once, so a filtered
/// message costs no call: each data frame passes five of them.
inline const QLoggingCategory &logCategory = *QLoggingCategory::defaultCategory();
