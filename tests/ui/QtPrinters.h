#pragma once

#include <QColor>
#include <QString>

#include <ostream>

// Readable failure messages for the Qt values the UI tests compare.
inline void PrintTo(const QString& text, std::ostream* stream) {
    *stream << '"' << text.toStdString() << '"';
}

inline void PrintTo(const QColor& color, std::ostream* stream) {
    *stream << color.name(QColor::HexArgb).toStdString();
}
