#include "TmUniqueMarkNamePredicate.h"
#include "TmTimeCoordinator.h"

#include <gtest/gtest.h>

#include <vector>

using namespace Vn;

TEST(TmUniqueMarkNamePredicate, RefusesNamesOfExistingMarksExactly) {
    std::vector<TmMark> marks{{"In", DtTime(0)}, {"Mark", DtTime(10)}, {"Maïk", DtTime(20)}};
    TmUniqueMarkNamePredicate p(Iterator<TmMark>::overRange(marks.begin(), marks.end()));
    EXPECT_FALSE(p.isValid(std::string("Mark")));
    EXPECT_EQ(p.getMarks().item().getName(), "Mark");
    EXPECT_TRUE(p.isValid(std::string("mark")));
    EXPECT_TRUE(p.isValid(std::string("Mark ")));
    EXPECT_TRUE(p.getMarks().atEnd());
    // The first mark is checked too, from wherever the last check stopped.
    EXPECT_FALSE(p.isValid(std::string("In")));

    EXPECT_FALSE(p.isValid(std::wstring(L"Mark")));
    EXPECT_FALSE(p.isValid(std::wstring(L"Ma\u00efk")));
    EXPECT_TRUE(p.isValid(std::wstring(L"MA\u00cfK")));
    // Used as any name check.
    LiStringUtil::ValidateNamePredicate& check = p;
    EXPECT_FALSE(check.isValid(std::wstring(L"In")));
    EXPECT_TRUE(check.isValid(std::string("Out")));
}

TEST(TmUniqueMarkNamePredicate, AnEmptySetAcceptsAnyName) {
    TmUniqueMarkNamePredicate none{Iterator<TmMark>()};
    EXPECT_TRUE(none.isValid(std::string()));
    EXPECT_TRUE(none.isValid(std::wstring(L"x")));

    // It keeps its own copy of the coordinator's marks.
    TmTimeCoordinator co;
    co.addMark(TmMark("A", DtTime(1)));
    TmUniqueMarkNamePredicate p(co.getMarks());
    co.removeMark("A");
    EXPECT_FALSE(p.isValid(std::string("A")));
    EXPECT_TRUE(TmUniqueMarkNamePredicate(co.getMarks()).isValid(std::string("A")));
}
