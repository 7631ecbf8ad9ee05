#include "QuenHost/PoolCall.h"

#include <exception>
#include <gtest/gtest.h>
#include <stdexcept>

namespace
{
TEST(PoolCallTest, AnExceptionBecomesAText)
{
    EXPECT_EQ(std::nullopt, PoolCall::Guard([] {}));
    EXPECT_EQ("why", PoolCall::Guard([] { throw std::runtime_error("why"); }));
    EXPECT_EQ("unknown exception", PoolCall::Guard([] { throw 7; }));
}

TEST(PoolCallTest, AnExceptionWhoseTextIsNullCountsAsUnknown)
{
    class CLS_Textless : public std::exception
    {
    public:
        const char* what() const noexcept override { return nullptr; }
    };
    EXPECT_EQ("unknown exception", PoolCall::Guard([] { throw CLS_Textless(); }));
}
} // namespace
