#include "tests/machrun/ExportTrie.h"

#include <gtest/gtest.h>

namespace
{
/// A root with the edges "_an" and "_b". The first leads to a node without a name, which has the edges "swer"
/// and "y".
const std::string TRIE("\0\2_an\0\x0b_b\0\x1a" // 0
                       "\0\2swer\0\x16y\0\x1a" // 11
                       "\2\4\x10\0"            // 22: weak, at 16
                       "\3\0\x80\1\0",         // 26: at 128
                       31);

CLS_Bytes ToBytes(const std::string& _strTrie)
{
    return {reinterpret_cast<const std::uint8_t*>(_strTrie.data()), _strTrie.size()};
}

std::string GetReason(const std::string& _strTrie)
{
    try
    {
        ExportTrie::Find(ToBytes(_strTrie), "_a");
        return "";
    }
    catch (const std::runtime_error& error)
    {
        return error.what();
    }
}

TEST(ExportTrieTest, FindsNamesThroughTheirEdges)
{
    const auto stAnswer = ExportTrie::Find(ToBytes(TRIE), "_answer");
    ASSERT_TRUE(stAnswer.has_value());
    EXPECT_TRUE(stAnswer->m_bWeak);
    EXPECT_EQ(16U, stAnswer->m_uiOffset);
    EXPECT_EQ(0U, stAnswer->m_uiLibrary);
    const auto stB = ExportTrie::Find(ToBytes(TRIE), "_b");
    ASSERT_TRUE(stB.has_value());
    EXPECT_FALSE(stB->m_bWeak);
    EXPECT_EQ(128U, stB->m_uiOffset);
}

TEST(ExportTrieTest, ANameMayBeReexportedFromALibraryUnderAnotherName)
{
    const std::string strTrie("\0\1_a\0\6\6\x08\2_c\0\0", 13);
    const auto stExport = ExportTrie::Find(ToBytes(strTrie), "_a");
    ASSERT_TRUE(stExport.has_value());
    EXPECT_EQ(2U, stExport->m_uiLibrary);
    EXPECT_EQ("_c", stExport->m_strNameThere);
}

TEST(ExportTrieTest, OtherNamesAreNotFound)
{
    for (const char* const szName : {"", "_", "_an", "_answe", "_answers", "_c"})
    {
        EXPECT_FALSE(ExportTrie::Find(ToBytes(TRIE), szName).has_value()) << szName;
    }
    EXPECT_FALSE(ExportTrie::Find(CLS_Bytes(), "_a").has_value());
}

TEST(ExportTrieTest, BrokenTreesAreRefused)
{
    EXPECT_EQ("it ends in the middle of a value", GetReason(std::string("\0", 1)));
    EXPECT_EQ("a text is not terminated", GetReason(std::string("\0\1_a", 4)));
    EXPECT_EQ("an offset leads past the end", GetReason(std::string("\0\1_a\0\x7f", 6)));
    EXPECT_EQ("an offset leads past the end", GetReason(std::string("\x7f\0", 2)));
    EXPECT_EQ("the export _a is of an unknown kind", GetReason(std::string("\0\1_a\0\6\2\x10\0\0", 10)));
}

TEST(ExportTrieTest, TheSearchInATreeWithACycleEnds)
{
    EXPECT_EQ("", GetReason(std::string("\0\1_\0\0", 5)));
}
} // namespace
