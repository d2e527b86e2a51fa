#include "atr_String.h"

#include "FailureSweep.h"
#include "atr_Translate.h"

#include <climits>

namespace
{

template<class String>
class CountedString : public testing::Test
{
};
using Strings = testing::Types<atr_String, cow_String>;
TYPED_TEST_SUITE(CountedString, Strings);

TYPED_TEST(CountedString, CopiesShareOneTextThatOutlivesEach)
{
    char source[] = "platform";
    TypeParam const last = [&source] {
        TypeParam const first(source);
        source[0] = 'X';
        TypeParam copy(first);
        copy = TypeParam("other");
        copy = *&copy; // the only holder of its text
        EXPECT_STREQ(copy.c_str(), "other");
        copy = first;
        EXPECT_EQ(copy.c_str(), first.c_str());
        TypeParam sameText("platform");
        EXPECT_NE(sameText.c_str(), first.c_str());
        EXPECT_EQ(sameText, first);
        return copy;
    }();

    EXPECT_STREQ(last.c_str(), "platform");
}

TYPED_TEST(CountedString, HoldsPartOfATextOrNone)
{
    EXPECT_STREQ(TypeParam(std::string_view("abcdef").substr(1, 3)).c_str(), "bcd");
    EXPECT_FALSE(TypeParam(" ").IsEmpty());
    for (TypeParam const& text : {TypeParam(), TypeParam(""), TypeParam(static_cast<char const*>(nullptr))}) {
        TypeParam target("full");
        target = text;
        EXPECT_TRUE(target.IsEmpty());
        EXPECT_STREQ(target.c_str(), "");
    }
    int const failures = FailEach(
        Allocations(), [] { TypeParam("text"); }, [](bool) {});
    EXPECT_EQ(failures, 2); // leaves nothing behind when memory ends
}

std::string Substituted(char const* format, std::vector<std::pair<int, char const*>> const& texts)
{
    atr_translate message(format);
    for (auto const& [place, text] : texts)
        atr_SubstituteFormat(message, place, text);
    return message.Result().c_str();
}

TEST(atr_translate, FillsPlacesInTheirOrder)
{
    struct {
        char const* format;
        std::vector<std::pair<int, char const*>> texts;
        char const* expected;
    } const kCases[] = {
        {"%s", {{1, "a"}}, "a"},
        {"%s and %i", {{2, "b"}, {1, "a"}}, "a and b"},
        {"%s%i%s", {{3, "c"}, {1, "%i"}}, "%i%ic"}, // a place without a value stays; a value is not searched
        {"%s", {{0, "a"}, {2, "b"}, {-1, "c"}}, "%s"},
        {"100% of %d: %s%", {{1, "a"}}, "100% of %d: a%"},
        {"[%s]", {{1, nullptr}}, "[]"},
        {"no place", {{1, "a"}}, "no place"},
        {"", {}, ""},
        {nullptr, {{1, "a"}}, ""},
    };
    for (auto const& c : kCases)
        EXPECT_EQ(Substituted(c.format, c.texts), c.expected);

    atr_translate numbers("%i, %i");
    atr_SubstituteFormat(numbers, 1, INT_MIN);
    atr_SubstituteFormat(numbers, 2, 0);
    EXPECT_STREQ(numbers.Result().c_str(), "-2147483648, 0");
}

TEST(atr_translate, UsesTheLookupInForceWhenItIsMade)
{
    atr_Lookup const lookup = [](char const*) -> char const* { return "%s: übersetzt"; };
    ASSERT_EQ(atr_SetLookup(lookup), nullptr);
    atr_translate message("%s in English");
    EXPECT_EQ(atr_SetLookup(nullptr), lookup);

    atr_SubstituteFormat(message, 1, "x");
    EXPECT_STREQ(message.Result().c_str(), "x: übersetzt");
    EXPECT_STREQ(atr_translate("English").Result().c_str(), "English");
}

} // namespace
