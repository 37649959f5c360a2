#include "WaylandOwned.h"

#include <gtest/gtest.h>

#include <vector>

namespace keyferry {
namespace {

// Stands for a Wayland object; its ending is recorded.
struct Object {
    int id;
};

std::vector<int> ended;

void end(Object* object) {
    ended.push_back(object->id);
}

class WaylandOwnedTest : public ::testing::Test {
protected:
    void SetUp() override { ended.clear(); }
    Object first{1};
    Object second{2};
};

TEST_F(WaylandOwnedTest, AnObjectEndsOnceWhenItsOwnerGoes) {
    {
        WaylandOwned<Object> owner(&first, end);
        EXPECT_TRUE(ended.empty());
    }
    EXPECT_EQ(ended, std::vector<int>{1});
}

TEST_F(WaylandOwnedTest, ResetEndsItAtOnceAndOnlyOnce) {
    WaylandOwned<Object> owner(&first, end);
    owner.reset();
    owner.reset();
    EXPECT_FALSE(owner);
    EXPECT_EQ(ended, std::vector<int>{1});
}

TEST_F(WaylandOwnedTest, AReplacedObjectEndsAndTheNewOneLivesOn) {
    WaylandOwned<Object> owner(&first, end);
    owner = WaylandOwned<Object>(&second, end);
    EXPECT_EQ(ended, std::vector<int>{1});
    EXPECT_EQ(owner.get(), &second);
}

TEST_F(WaylandOwnedTest, AMovedObjectEndsWithItsNewOwnerOnly) {
    WaylandOwned<Object> owner(&first, end);
    {
        WaylandOwned<Object> taker(std::move(owner));
        EXPECT_FALSE(owner);
    }
    EXPECT_EQ(ended, std::vector<int>{1});
}

TEST_F(WaylandOwnedTest, AnEmptyOwnerEndsNothing) {
    { WaylandOwned<Object> owner; }
    EXPECT_TRUE(ended.empty());
}

} // namespace
} // namespace keyferry
