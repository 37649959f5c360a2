#pragma once

#include <QIcon>
#include <QString>

namespace keyferry {

// The application icon. Main thread only; never absent: the PNG (on macOS the bundle's resource, else the
// copy compiled in), else the "waveform.and.mic" symbol, else an empty icon.
class Assets {
public:
    Assets() = delete;

    static constexpr const char* appIconResource = ":/keyferry-app-icon.png";

    // Made once, on first use, from DesktopIntegration::appIconPath().
    static QIcon appIcon();

    // The same choice for an icon file at `path` (the fallbacks apply when it is missing or not an image).
    static QIcon loadAppIcon(const QString& path);
};

} // namespace keyferry
