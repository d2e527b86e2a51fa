#include "KVOFsmSystemDofDefinition.h"

#include "KVOBasPlatformException.h"

#include <climits>
#include <gmock/gmock.h>

namespace
{

TEST(KVOFsmSystemDofDefinition, KeepsCopiesOfItsListsAndRefusesOtherPlaces)
{
    std::vector<int> nodes{11, 11, -5}, dofs{1, 3, 6};
    KVOFsmSystemDofDefinition const definition(3, nodes.data(), dofs.data());
    nodes.assign(3, 0);
    dofs.assign(3, 0);

    int node = 77, dof = 78;
    for (int const outside : {-1, 3, INT_MAX, INT_MIN}) {
        try {
            definition.NodeDofFromSolverDof(outside, node, dof);
            ADD_FAILURE() << outside;
        } catch (KVOBasPlatformException const& error) {
            EXPECT_THAT(std::string(error.AsString().View()),
                        testing::HasSubstr(" " + std::to_string(outside) + " is outside the range of 3"));
        }
        EXPECT_EQ(std::pair(node, dof), std::pair(77, 78));
    }
    std::vector<std::pair<int, int>> places;
    for (int i = 0; i < definition.NumberOfDofs(); ++i) {
        definition.NodeDofFromSolverDof(i, node, dof);
        places.emplace_back(node, dof);
    }
    EXPECT_EQ(places, (std::vector<std::pair<int, int>>{{11, 1}, {11, 3}, {-5, 6}}));

    EXPECT_THROW(KVOFsmSystemDofDefinition(-1, &node, &dof), KVOBasPlatformException);
    EXPECT_THROW(KVOFsmSystemDofDefinition(1, nullptr, &dof), KVOBasPlatformException);
    EXPECT_THROW(KVOFsmSystemDofDefinition(1, &node, nullptr), KVOBasPlatformException);
    EXPECT_EQ(KVOFsmSystemDofDefinition(0, nullptr, nullptr).NumberOfDofs(), 0);
}

} // namespace
