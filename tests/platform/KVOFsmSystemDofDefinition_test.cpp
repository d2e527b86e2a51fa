#include "KVOFsmSystemDofDefinition.h"

#include <climits>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>
#include <utility>
#include <vector>

namespace
{

TEST(KVOFsmSystemDofDefinition, KeepsCopiesOfItsLists)
{
    std::vector<int> nodes{11, 11, -5}, dofs{1, 3, 6};
    KVOFsmSystemDofDefinition const definition(3, nodes.data(), dofs.data());
    nodes.assign(3, 0);
    dofs.assign(3, 0);

    std::vector<std::pair<int, int>> places;
    for (int i = 0; i < definition.NumberOfDofs(); ++i) {
        places.emplace_back();
        definition.NodeDofFromSolverDof(i, places.back().first, places.back().second);
    }
    EXPECT_EQ(places, (std::vector<std::pair<int, int>>{{11, 1}, {11, 3}, {-5, 6}}));
}

TEST(KVOFsmSystemDofDefinition, RefusesWhatItDoesNotHold)
{
    int const list[] = {4, 5};
    KVOFsmSystemDofDefinition const definition(2, list, list);
    int node = 77, dof = 78;
    for (int const outside : {-1, 2, INT_MAX, INT_MIN}) {
        try {
            definition.NodeDofFromSolverDof(outside, node, dof);
            ADD_FAILURE() << outside;
        } catch (std::out_of_range const& error) {
            EXPECT_THAT(error.what(), testing::HasSubstr(" " + std::to_string(outside) + " is outside the range of 2"));
        }
        EXPECT_EQ(std::pair(node, dof), std::pair(77, 78));
    }
    EXPECT_THROW(KVOFsmSystemDofDefinition(-1, list, list), std::invalid_argument);
    EXPECT_THROW(KVOFsmSystemDofDefinition(1, nullptr, list), std::invalid_argument);
    EXPECT_THROW(KVOFsmSystemDofDefinition(1, list, nullptr), std::invalid_argument);
    EXPECT_EQ(KVOFsmSystemDofDefinition(0, nullptr, nullptr).NumberOfDofs(), 0);
}

} // namespace
