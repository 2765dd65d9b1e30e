#include "StateKit/Core.h"
#include "StateKit/SharedMap.h"
#include "StateKit/SharedList.h"
#include "TestSupport/TestLoop.h"
#include <gtest/gtest.h>
TEST(SharedListTest, Appends) { SharedList<int> a; a.push_back(1); auto b=a; b.push_back(2); a.push_back(3); EXPECT_EQ(a[1],3); EXPECT_EQ(b[1],2); TestLoop l; auto c=Core<int>::make(l,1); c->commit([](int& x){x=2;}); EXPECT_EQ(c->state(),2);}
