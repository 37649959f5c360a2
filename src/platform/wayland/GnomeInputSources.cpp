#include "GnomeInputSources.h"

#include <gio/gio.h>

#include <algorithm>
#include <memory>

namespace keyferry {

namespace {

constexpr const char* schemaId = "org.gnome.desktop.input-sources";
// GNOME Shell keeps one of the four layouts of an X keymap for the interface language's.
constexpr std::size_t layoutsPerKeymap = 3;

template <typename T> struct Unref {
    void operator()(T* object) const { g_object_unref(object); }
};
using Settings = std::unique_ptr<GSettings, Unref<GSettings>>;

struct SchemaDeleter {
    void operator()(GSettingsSchema* schema) const { g_settings_schema_unref(schema); }
};
using Schema = std::unique_ptr<GSettingsSchema, SchemaDeleter>;

struct SourceDeleter {
    void operator()(GSettingsSchemaSource* source) const { g_settings_schema_source_unref(source); }
};

struct VariantDeleter {
    void operator()(GVariant* value) const { g_variant_unref(value); }
};
using Variant = std::unique_ptr<GVariant, VariantDeleter>;

// The input-sources schema; null when it is not installed (a lookup of a missing schema must not reach
// g_settings_new, which aborts the process).
Schema lookUpSchema(const std::string& directory) {
    if (directory.empty()) {
        GSettingsSchemaSource* installed = g_settings_schema_source_get_default();
        return Schema(installed == nullptr ? nullptr : g_settings_schema_source_lookup(installed, schemaId, TRUE));
    }
    std::unique_ptr<GSettingsSchemaSource, SourceDeleter> own(
        g_settings_schema_source_new_from_directory(directory.c_str(), nullptr, TRUE, nullptr));
    return Schema(own ? g_settings_schema_source_lookup(own.get(), schemaId, FALSE) : nullptr);
}

std::vector<GnomeInputSources::Source> sourcesIn(GSettings* settings, const char* key) {
    std::vector<GnomeInputSources::Source> sources;
    const Variant value(g_settings_get_value(settings, key));
    if (!value || !g_variant_is_of_type(value.get(), G_VARIANT_TYPE("a(ss)"))) {
        return sources;
    }
    GVariantIter iterator;
    g_variant_iter_init(&iterator, value.get());
    const gchar* type = nullptr;
    const gchar* id = nullptr;
    while (g_variant_iter_next(&iterator, "(&s&s)", &type, &id)) {
        sources.push_back({type, id});
    }
    return sources;
}

bool hasKeys(GSettingsSchema* schema, std::initializer_list<const char*> keys) {
    return std::all_of(keys.begin(), keys.end(),
                       [schema](const char* key) { return g_settings_schema_has_key(schema, key) != FALSE; });
}

} // namespace

GnomeInputSources::GnomeInputSources() = default;

GnomeInputSources::GnomeInputSources(std::string schemas, GSettingsBackend* settingsBackend)
    : schemaDirectory(std::move(schemas)), backend(settingsBackend) {
    if (backend != nullptr) {
        g_object_ref(backend);
    }
}

GnomeInputSources::~GnomeInputSources() {
    if (backend != nullptr) {
        g_object_unref(backend);
    }
}

std::optional<std::uint32_t> GnomeInputSources::layoutInEffect() const {
    const Schema schema = lookUpSchema(schemaDirectory);
    if (!schema || !hasKeys(schema.get(), {"sources", "mru-sources", "per-window"})) {
        return std::nullopt;
    }
    const Settings settings(g_settings_new_full(schema.get(), backend, nullptr));
    return layoutInEffect(sourcesIn(settings.get(), "sources"), sourcesIn(settings.get(), "mru-sources"),
                          g_settings_get_boolean(settings.get(), "per-window") != FALSE);
}

std::optional<std::uint32_t> GnomeInputSources::layoutInEffect(const std::vector<Source>& sources,
                                                               const std::vector<Source>& recentlyUsed,
                                                               bool perWindow) {
    const bool allLayouts =
        std::all_of(sources.begin(), sources.end(), [](const Source& source) { return source.type == "xkb"; });
    if (sources.empty() || !allLayouts || perWindow) {
        return std::nullopt;
    }
    const auto used = std::find_if(recentlyUsed.begin(), recentlyUsed.end(), [&sources](const Source& source) {
        return std::find(sources.begin(), sources.end(), source) != sources.end();
    });
    const Source& current = used == recentlyUsed.end() ? sources.front() : *used;
    // The same layout listed twice has one place in the keymap, its first.
    std::vector<std::string> layouts;
    for (const Source& source : sources) {
        if (std::find(layouts.begin(), layouts.end(), source.id) == layouts.end()) {
            layouts.push_back(source.id);
        }
    }
    const auto position = std::find(layouts.begin(), layouts.end(), current.id) - layouts.begin();
    return static_cast<std::uint32_t>(static_cast<std::size_t>(position) % layoutsPerKeymap);
}

} // namespace keyferry
