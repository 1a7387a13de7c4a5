#include "RtPriorities.h"

#include <gtest/gtest.h>

using namespace Vn;

TEST(RtPriorities, RelationsAreKnownWhileTheyLive) {
    RtPriorities& p = RtPriorities::getInstance();
    int before = p.getNbRelations();
    int value = -1;
    EXPECT_FALSE(p.findRelation("TestRelation", value));
    {
        PriorityRelation r("TestRelation", 2);
        EXPECT_EQ(r.getName(), "TestRelation");
        EXPECT_EQ(p.getNbRelations(), before + 1);
        ASSERT_TRUE(p.findRelation("TestRelation", value));
        EXPECT_EQ(value, 2);
        {
            PriorityRelation newer("TestRelation", 5);
            ASSERT_TRUE(p.findRelation("TestRelation", value));
            EXPECT_EQ(value, 5);
        }
        ASSERT_TRUE(p.findRelation("TestRelation", value));
        EXPECT_EQ(value, 2);
    }
    EXPECT_FALSE(p.findRelation("TestRelation", value));
    EXPECT_EQ(p.getNbRelations(), before);
}
