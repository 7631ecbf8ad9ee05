#include "examples/thumbnails/Thumbnail.h"

#include "tests/support/TempFolder.h"
#include "tests/thumbnails/PictureFiles.h"

#include <QBuffer>
#include <QFile>
#include <csignal>
#include <gtest/gtest.h>
#include <memory>
#include <sys/stat.h>
#include <thread>

namespace
{
class ThumbnailTest : public ::testing::Test
{
protected:
    QString GetPath(const char* _szName) const
    {
        return QString::fromStdString(m_clsFolder.GetPath(_szName));
    }

    const CLS_TempFolder m_clsFolder;
};

TEST_F(ThumbnailTest, FitsIntoTheSquare)
{
    WritePicture(GetPath("wide.png"), 1, {400, 200});
    WritePicture(GetPath("high.jpg"), 2, {150, 600});

    const ST_Thumbnail stWide = MakeThumbnail(GetPath("wide.png"), 100, {});
    EXPECT_EQ(QSize(100, 50), stWide.m_imgPicture.size());
    ExpectPicture(stWide.m_imgPicture, stWide.m_imgPicture.rect(), 1);

    const ST_Thumbnail stHigh = MakeThumbnail(GetPath("high.jpg"), 100, {});
    EXPECT_EQ(QSize(25, 100), stHigh.m_imgPicture.size());
    ExpectPicture(stHigh.m_imgPicture, stHigh.m_imgPicture.rect(), 2);
}

TEST_F(ThumbnailTest, KeepsTheSizeOfASmallPicture)
{
    WritePicture(GetPath("small.png"), 3, {20, 10});

    const ST_Thumbnail stSmall = MakeThumbnail(GetPath("small.png"), 100, {});
    EXPECT_EQ(QSize(20, 10), stSmall.m_imgPicture.size());
    ExpectPicture(stSmall.m_imgPicture, stSmall.m_imgPicture.rect(), 3);
}

TEST_F(ThumbnailTest, KeepsAtLeastOnePixelOfALine)
{
    WritePicture(GetPath("line.png"), 4, {2000, 2});

    EXPECT_EQ(QSize(100, 1), MakeThumbnail(GetPath("line.png"), 100, {}).m_imgPicture.size());
}

TEST_F(ThumbnailTest, RecognisesThePictureByItsContentAndNotByItsName)
{
    WritePicture(GetPath("picture.png"), 5, {40, 40});
    ASSERT_TRUE(QFile::rename(GetPath("picture.png"), GetPath("picture.jpg")));

    EXPECT_FALSE(MakeThumbnail(GetPath("picture.jpg"), 100, {}).m_imgPicture.isNull());
}

TEST_F(ThumbnailTest, SaysWhyThereIsNoThumbnail)
{
    WriteBytes(GetPath("text.png"), "no picture");

    const ST_Thumbnail stText = MakeThumbnail(GetPath("text.png"), 100, {});
    EXPECT_TRUE(stText.m_imgPicture.isNull());
    EXPECT_EQ("Unsupported image format", stText.m_strError.toStdString());

    const ST_Thumbnail stMissing = MakeThumbnail(GetPath("missing.png"), 100, {});
    EXPECT_TRUE(stMissing.m_imgPicture.isNull());
    EXPECT_EQ("No such file or directory", stMissing.m_strError.toStdString());
}

TEST_F(ThumbnailTest, GivesUpInTheMiddleOfAPictureWhenAStopIsRequested)
{
    QBuffer bufPicture;
    ASSERT_TRUE(bufPicture.open(QIODevice::WriteOnly));
    ASSERT_TRUE(DrawPicture(6, {1000, 1000}).save(&bufPicture, "BMP"));
    const QByteArray strBytes = bufPicture.data();
    const auto iHalf = strBytes.size() / 2;
    ASSERT_EQ(0, mkfifo(GetPath("pipe.bmp").toLocal8Bit().constData(), 0600));
    const auto pStop = std::make_shared<CLS_StopState>();
    std::signal(SIGPIPE, SIG_IGN);

    // Neither half fits into the pipe. Once the first is written, the reader is in the middle of the picture.
    std::thread thrWriter(
        [&]
        {
            QFile clsPipe(GetPath("pipe.bmp"));
            EXPECT_TRUE(clsPipe.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
            EXPECT_EQ(iHalf, clsPipe.write(strBytes.constData(), iHalf));
            pStop->Request();
            EXPECT_LT(clsPipe.write(strBytes.constData() + iHalf, strBytes.size() - iHalf), iHalf);
        });
    MakeThumbnail(GetPath("pipe.bmp"), 100, CLS_StopToken(pStop));
    thrWriter.join();
}
} // namespace
