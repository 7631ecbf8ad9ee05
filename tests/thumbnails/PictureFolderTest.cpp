#include "examples/thumbnails/PictureFolder.h"

#include "tests/support/TempFolder.h"
#include "tests/thumbnails/PictureFiles.h"

#include <QDir>
#include <QFile>
#include <gtest/gtest.h>
#include <memory>
#include <sys/stat.h>

namespace
{
class PictureFolderTest : public ::testing::Test
{
protected:
    void AddFile(const char* _szName) const { WriteBytes(m_strFolder + "/" + _szName, "any"); }

    const CLS_TempFolder m_clsFolder;
    const QString m_strFolder = QString::fromStdString(m_clsFolder.GetPath());
};

TEST_F(PictureFolderTest, ListsPicturesInTheOrderThatPeopleExpect)
{
    for (const char* szName : {"picture 10.png", "Picture 2.JPG", "a.bmp", "notes.txt", "png", ".png.swp"})
    {
        AddFile(szName);
    }

    const ST_PictureList stPictures = FindPictures(m_strFolder, {});
    EXPECT_EQ(QStringList({"a.bmp", "Picture 2.JPG", "picture 10.png"}), stPictures.m_lstNames);
    EXPECT_EQ("", stPictures.m_strError.toStdString());
}

TEST_F(PictureFolderTest, LeavesOutFoldersAndPipes)
{
    ASSERT_TRUE(QDir(m_strFolder).mkdir("folder.png"));
    ASSERT_EQ(0, mkfifo(m_clsFolder.GetPath("pipe.png").c_str(), 0600));

    EXPECT_EQ(QStringList(), FindPictures(m_strFolder, {}).m_lstNames);
}

TEST_F(PictureFolderTest, ListsLinksIncludingBrokenOnes)
{
    AddFile("a.png");
    ASSERT_TRUE(QFile::link("a.png", m_strFolder + "/b.png"));
    ASSERT_TRUE(QFile::link("missing.png", m_strFolder + "/c.png"));

    EXPECT_EQ(QStringList({"a.png", "b.png", "c.png"}), FindPictures(m_strFolder, {}).m_lstNames);
}

TEST_F(PictureFolderTest, SaysWhyAFolderCannotBeRead)
{
    const ST_PictureList stMissing = FindPictures(m_strFolder + "/missing", {});
    EXPECT_EQ(QStringList(), stMissing.m_lstNames);
    EXPECT_EQ("No such file or directory", stMissing.m_strError.toStdString());

    AddFile("a.png");
    EXPECT_EQ("Not a directory", FindPictures(m_strFolder + "/a.png", {}).m_strError.toStdString());
}

TEST_F(PictureFolderTest, EndsEarlyWhenAStopIsRequested)
{
    AddFile("a.png");
    const auto pStop = std::make_shared<CLS_StopState>();
    pStop->Request();

    EXPECT_EQ(QStringList(), FindPictures(m_strFolder, CLS_StopToken(pStop)).m_lstNames);
}
} // namespace
