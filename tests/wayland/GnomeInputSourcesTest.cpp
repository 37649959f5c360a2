// The layout GNOME has in effect, from its input-source settings: the rule GNOME Shell applies, and the
// settings read through GSettings from a private in-memory backend (nothing reaches the user's dconf).
#include "GnomeInputSources.h"
#include "TempFolder.h"

#define G_SETTINGS_ENABLE_BACKEND // for the in-memory backend
#include <gio/gio.h>
#include <gio/gsettingsbackend.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace keyferry {
namespace {

using Sources = std::vector<GnomeInputSources::Source>;

GnomeInputSources::Source xkb(const std::string& id) {
    return {"xkb", id};
}

TEST(GnomeInputSourcesRuleTest, TheFirstRecentlyUsedSourceIsInEffect) {
    EXPECT_EQ(GnomeInputSources::layoutInEffect({xkb("us"), xkb("ru")}, {xkb("ru"), xkb("us")}, false), 1u);
    EXPECT_EQ(GnomeInputSources::layoutInEffect({xkb("us"), xkb("ru")}, {xkb("us"), xkb("ru")}, false), 0u);
}

TEST(GnomeInputSourcesRuleTest, WithoutARecentlyUsedSourceStillListedTheFirstSourceIsInEffect) {
    EXPECT_EQ(GnomeInputSources::layoutInEffect({xkb("us"), xkb("ru")}, {}, false), 0u);
    EXPECT_EQ(GnomeInputSources::layoutInEffect({xkb("de"), xkb("ru")}, {xkb("fr"), xkb("ru")}, false), 1u);
}

TEST(GnomeInputSourcesRuleTest, AKeymapHoldsThreeLayoutsSoTheFourthIsTheFirstOfTheNextKeymap) {
    const Sources sources{xkb("us"), xkb("ru"), xkb("de"), xkb("fr"), xkb("gr")};
    EXPECT_EQ(GnomeInputSources::layoutInEffect(sources, {xkb("de")}, false), 2u);
    EXPECT_EQ(GnomeInputSources::layoutInEffect(sources, {xkb("fr")}, false), 0u);
    EXPECT_EQ(GnomeInputSources::layoutInEffect(sources, {xkb("gr")}, false), 1u);
}

TEST(GnomeInputSourcesRuleTest, AVariantIsALayoutOfItsOwn) {
    EXPECT_EQ(GnomeInputSources::layoutInEffect({xkb("us"), xkb("us+dvorak")}, {xkb("us+dvorak")}, false), 1u);
}

TEST(GnomeInputSourcesRuleTest, ALayoutListedTwiceHasOnePlace) {
    EXPECT_EQ(GnomeInputSources::layoutInEffect({xkb("us"), xkb("us"), xkb("ru")}, {xkb("ru")}, false), 1u);
}

TEST(GnomeInputSourcesRuleTest, UnknownWithoutSourcesWithAnInputMethodEngineOrPerWindowSources) {
    EXPECT_EQ(GnomeInputSources::layoutInEffect({}, {xkb("ru")}, false), std::nullopt);
    EXPECT_EQ(GnomeInputSources::layoutInEffect({xkb("us"), {"ibus", "libpinyin"}}, {xkb("us")}, false), std::nullopt);
    EXPECT_EQ(GnomeInputSources::layoutInEffect({xkb("us"), xkb("ru")}, {xkb("ru")}, true), std::nullopt);
}

// GNOME's installed schema, with values kept in memory.
class GnomeInputSourcesSettingsTest : public ::testing::Test {
protected:
    void SetUp() override {
        GSettingsSchemaSource* installed = g_settings_schema_source_get_default();
        schema = installed == nullptr
                     ? nullptr
                     : g_settings_schema_source_lookup(installed, "org.gnome.desktop.input-sources", TRUE);
        ASSERT_NE(schema, nullptr) << "gsettings-desktop-schemas is not installed";
        backend = g_memory_settings_backend_new();
        settings = g_settings_new_full(schema, backend, nullptr);
    }

    void TearDown() override {
        g_object_unref(settings);
        g_object_unref(backend);
        g_settings_schema_unref(schema);
    }

    void set(const char* key, const Sources& sources) {
        GVariantBuilder builder;
        g_variant_builder_init(&builder, G_VARIANT_TYPE("a(ss)"));
        for (const auto& source : sources) {
            g_variant_builder_add(&builder, "(ss)", source.type.c_str(), source.id.c_str());
        }
        ASSERT_TRUE(g_settings_set_value(settings, key, g_variant_builder_end(&builder)));
    }

    GSettingsSchema* schema = nullptr;
    GSettingsBackend* backend = nullptr;
    GSettings* settings = nullptr;
};

TEST_F(GnomeInputSourcesSettingsTest, TheSecondLayoutRecentlyUsedIsInEffect) {
    set("sources", {xkb("us"), xkb("ru")});
    set("mru-sources", {xkb("ru"), xkb("us")});
    EXPECT_EQ(GnomeInputSources("", backend).layoutInEffect(), 1u);
}

TEST_F(GnomeInputSourcesSettingsTest, EveryReadSeesTheLatestSwitch) {
    const GnomeInputSources inputSources("", backend);
    set("sources", {xkb("us"), xkb("ru")});
    set("mru-sources", {xkb("ru"), xkb("us")});
    EXPECT_EQ(inputSources.layoutInEffect(), 1u);
    set("mru-sources", {xkb("us"), xkb("ru")});
    EXPECT_EQ(inputSources.layoutInEffect(), 0u);
}

TEST_F(GnomeInputSourcesSettingsTest, PerWindowSourcesAndTheDefaultEmptyListAreUnknown) {
    EXPECT_EQ(GnomeInputSources("", backend).layoutInEffect(), std::nullopt);
    set("sources", {xkb("us"), xkb("ru")});
    ASSERT_TRUE(g_settings_set_boolean(settings, "per-window", TRUE));
    EXPECT_EQ(GnomeInputSources("", backend).layoutInEffect(), std::nullopt);
}

TEST_F(GnomeInputSourcesSettingsTest, WithoutTheSchemaTheLayoutIsUnknown) {
    set("sources", {xkb("us"), xkb("ru")});
    const TempFolder noSchemas("keyferry-no-schemas");
    EXPECT_EQ(GnomeInputSources(noSchemas.path().string(), backend).layoutInEffect(), std::nullopt);
}

} // namespace
} // namespace keyferry
