#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct _GSettingsBackend;

namespace keyferry {

// The layout (xkb group) that GNOME has in effect, as its settings tell it (org.gnome.desktop.input-sources).
// GNOME Shell, not mutter, applies them: it builds the keymap from the layouts of `sources`, in their order,
// at most three to a keymap (a fourth slot holds the layout of the interface language), and locks the group
// of the current source, which is the first of `mru-sources` that is still among `sources` (the first source
// when none is). That group is what this answers; it cannot be told, so nullopt, when the schema or a key is
// missing (another desktop, an older GNOME), when there are no sources (the keymap then comes from the
// locale), when a source is an input-method engine (its layout is the engine's), or when each window keeps
// its own source (`per-window`: the recently used list then lags behind).
//
// Reads the settings afresh at every call (a user may switch at any time); nothing is cached or watched.
// Callable from any thread; never throws.
class GnomeInputSources {
public:
    struct Source {
        std::string type; // "xkb" or "ibus"
        std::string id;   // for xkb: the layout, with its variant after a "+" ("us", "de+nodeadkeys")
        bool operator==(const Source&) const = default;
    };

    // The desktop's own settings: the installed schemas and the default settings backend (dconf).
    GnomeInputSources();
    // Settings kept in `backend`, of the schemas compiled in `schemaDirectory` alone (the installed schemas
    // when it is empty); for tests.
    GnomeInputSources(std::string schemaDirectory, _GSettingsBackend* backend);
    ~GnomeInputSources();
    GnomeInputSources(const GnomeInputSources&) = delete;
    GnomeInputSources& operator=(const GnomeInputSources&) = delete;

    // The group GNOME Shell locked for the settings now; nullopt when it cannot be told.
    std::optional<std::uint32_t> layoutInEffect() const;

    // The same, from the settings' values.
    static std::optional<std::uint32_t> layoutInEffect(const std::vector<Source>& sources,
                                                       const std::vector<Source>& recentlyUsed, bool perWindow);

private:
    std::string schemaDirectory; // empty: the installed schemas
    _GSettingsBackend* backend = nullptr;
};

} // namespace keyferry
