#include "cow_COW.h"

#include <gtest/gtest.h>
#include <memory>

namespace
{

struct Object {
    explicit Object(int number) : value(number) { ++s_alive; }
    Object(Object const& other) : value(other.value) { ++s_alive; }
    ~Object() { --s_alive; }

    int value;
    static inline int s_alive = 0;
};

struct ObjectWithCount : Object {
    using Object::Object;
    std::int32_t& HolderCount() noexcept { return holders; }
    std::int32_t holders = 0;
};

template<class T>
class cow_COWTest : public testing::Test
{
protected:
    ~cow_COWTest() override { EXPECT_EQ(Object::s_alive, 0); }
};
using Objects = testing::Types<Object, ObjectWithCount>;
TYPED_TEST_SUITE(cow_COWTest, Objects);

TYPED_TEST(cow_COWTest, AssignmentMovesOneHolderFromObjectToObject)
{
    using Handle = cow_COW<TypeParam>;
    Handle a(new TypeParam(1)), b(new TypeParam(2));
    Handle const c(a);
    a = b;
    EXPECT_EQ(a.GetPtr(), b.GetPtr());
    EXPECT_EQ(a.Count(), 2);
    EXPECT_EQ(c.Count(), 1);
    EXPECT_EQ(c.ConstGet().value, 1);

    b = new TypeParam(3); // shared with a, which keeps it
    EXPECT_EQ(a.ConstGet().value, 2);
    EXPECT_EQ(a.Count(), 1);
    a = new TypeParam(4); // not shared: object 2 goes
    EXPECT_EQ(Object::s_alive, 3);
    a = a.GetPtr();
    EXPECT_EQ(std::pair(a.ConstGet().value, a.Count()), std::pair(4, 1));
    a = b;
    Handle const& itself = a;
    a = itself;
    EXPECT_EQ(std::pair(b.Count(), Object::s_alive), std::pair(2, 2));
}

// Only the object without a place for its count allocates one, which can fail.
TEST(cow_COW, KeepsItsObjectWhenMemoryEnds)
{
    cow_COW<Object> a(new Object(1));
    cow_COW<Object> const b(a);
    auto other = std::make_unique<Object>(2);

    mem_FailAllocationAfter(0);
    EXPECT_THROW(a = other.release(), mem_OutOfMemory);
    mem_FailAllocationAfter(0);
    EXPECT_THROW(a.Get(), mem_OutOfMemory);
    mem_FailAllocationAfter(-1);
    EXPECT_EQ(Object::s_alive, 1);
    EXPECT_EQ(a.GetPtr(), b.GetPtr());
    EXPECT_EQ(b.Count(), 2);
}

} // namespace
