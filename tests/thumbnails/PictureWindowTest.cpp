#include "tests/thumbnails/PictureFiles.h"
#include "tests/thumbnails/WindowTest.h"

#include <QAction>
#include <QApplication>
#include <QDir>
#include <QLabel>
#include <QPixmap>
#include <QProgressBar>
#include <QScreen>
#include <QThread>
#include <QTimer>
#include <algorithm>
#include <filesystem>
#include <gmock/gmock.h>
#include <memory>

namespace
{
using ::testing::HasSubstr;
using ::testing::MatchesRegex;

constexpr int MANY = 2000;
constexpr std::chrono::milliseconds CLOSING_LIMIT{50};
/// Another program may delay a close, but hardly this many. The fastest one counts.
constexpr int CLOSINGS = 5;

class PictureWindowTest : public CLS_WindowTest
{
protected:
    /// Adds many pictures. They share few contents through hard links, to save disk space.
    QString AddManyPictures(const std::string& _strName) const
    {
        constexpr int CONTENTS = 8;
        const QString strFolder = AddFolder(_strName);
        for (int iNumber = 0; iNumber < MANY; ++iNumber)
        {
            const QString strPath = QDir(strFolder).filePath(QString("%1.png").arg(iNumber));
            if (iNumber < CONTENTS)
            {
                WritePicture(strPath, iNumber, {320, 240});
                continue;
            }
            const QString strContent = QDir(strFolder).filePath(QString("%1.png").arg(iNumber % CONTENTS));
            std::filesystem::create_hard_link(strContent.toStdString(), strPath.toStdString());
        }
        return strFolder;
    }

    /// Counts the running tasks of the folder's window, except those that report progress.
    int CountRuns(const QString& _strFolder) const
    {
        const std::string strOwner = _strFolder.toStdString();
        const ST_PoolSnapshot stSnapshot = Pool().TakeSnapshot();
        return static_cast<int>(std::count_if(stSnapshot.m_vecRuns.begin(), stSnapshot.m_vecRuns.end(),
                                              [&](const ST_RunInfo& _stRun) {
                                                  return _stRun.m_strOwner == strOwner &&
                                                         _stRun.m_strCallInfo != "progress";
                                              }));
    }

    /// Returns whether a task or loop task of the folder's window exists.
    bool HasWork(const QString& _strFolder) const
    {
        const std::string strLoop = _strFolder.toStdString() + " progress";
        const ST_PoolSnapshot stSnapshot = Pool().TakeSnapshot();
        return CountRuns(_strFolder) > 0 ||
               std::any_of(stSnapshot.m_vecLoops.begin(), stSnapshot.m_vecLoops.end(),
                           [&](const ST_LoopInfo& _stLoop) { return _stLoop.m_strCallInfo == strLoop; });
    }

    static void ExpectAllThumbnails(const CLS_PictureWindow& _wndSeen)
    {
        for (int iRow = 0; iRow < CountRows(_wndSeen); ++iRow)
        {
            ExpectThumbnail(_wndSeen, iRow);
        }
    }

    /// Returns what the screen shows in the row's square.
    static QImage GrabSquare(CLS_PictureWindow& _wndSeen, int _iRow)
    {
        QListView& wgtView = GetView(_wndSeen);
        const QModelIndex idxItem = wgtView.model()->index(_iRow, 0);
        wgtView.scrollTo(idxItem);
        QApplication::processEvents();
        const QSize szSquare = wgtView.iconSize();
        QRect rctSquare(QPoint(), szSquare);
        const QRect rctItem = wgtView.visualRect(idxItem);
        rctSquare.moveCenter(rctItem.center());
        rctSquare.moveTop(rctItem.top());
        rctSquare.moveTopLeft(wgtView.viewport()->mapTo(&_wndSeen, rctSquare.topLeft()));
        const QPixmap pxmScreen = _wndSeen.screen()->grabWindow(_wndSeen.winId());
        return pxmScreen.copy(rctSquare).toImage();
    }
};

TEST_F(PictureWindowTest, ShowsEveryPictureOfTheFolder)
{
    constexpr int PICTURES = 120;
    const CLS_PictureWindow& wndPictures = *Open(AddPictures("pictures", PICTURES));

    ASSERT_TRUE(RunUntil([&] { return CountShown(wndPictures) == PICTURES; }));
    ASSERT_EQ(PICTURES, CountRows(wndPictures));
    EXPECT_EQ("picture 2.bmp", GetData(wndPictures, 2, Qt::DisplayRole).toString().toStdString());
    EXPECT_EQ("picture 119.png", GetData(wndPictures, 119, Qt::DisplayRole).toString().toStdString());
    ExpectAllThumbnails(wndPictures);
}

TEST_F(PictureWindowTest, DrawsThumbnailsOnTheScreen)
{
    constexpr int PICTURES = 60;
    CLS_PictureWindow& wndPictures = *Open(AddPictures("pictures", PICTURES));
    ASSERT_TRUE(RunUntil([&] { return CountShown(wndPictures) == PICTURES; }));

    for (const int iRow : {0, 1, 2, 3, 30, PICTURES - 1})
    {
        ExpectSquare(wndPictures, iRow, GrabSquare(wndPictures, iRow));
    }
}

TEST_F(PictureWindowTest, ShowsTheProgressInTheStatusBar)
{
    const QString strFolder = AddManyPictures("many");
    const CLS_PictureWindow& wndMany = *Open(strFolder);
    const auto& wgtBar = *wndMany.findChild<QProgressBar*>();
    EXPECT_EQ("Reading the folder", GetStatus(wndMany));

    ASSERT_TRUE(RunUntil([&] { return wgtBar.value() > 0; }));
    EXPECT_THAT(GetStatus(wndMany), MatchesRegex("[0-9,]+ of 2,000 pictures, [0-9,]+ per second"));
    EXPECT_EQ(MANY, wgtBar.maximum());
    EXPECT_TRUE(wgtBar.isVisible());

    ASSERT_TRUE(RunUntil([&] { return !wgtBar.isVisible(); }));
    EXPECT_EQ("2,000 pictures", GetStatus(wndMany));
    EXPECT_TRUE(RunUntil([&] { return CountShown(wndMany) == MANY && !HasWork(strFolder); }));
}

TEST_F(PictureWindowTest, MakesNoMoreThumbnailsAtOnceThanThereAreCores)
{
    const QString strFolder = AddManyPictures("many");
    const CLS_PictureWindow& wndMany = *Open(strFolder);

    int iMost = 0;
    const auto funHalf = [&]
    {
        iMost = std::max(iMost, CountRuns(strFolder));
        return CountShown(wndMany) > MANY / 2;
    };
    ASSERT_TRUE(RunUntil(funHalf));
    EXPECT_GE(iMost, 1);
    EXPECT_LE(iMost, QThread::idealThreadCount());
}

TEST_F(PictureWindowTest, ClosesAtOnceWhileAPictureIsRead)
{
    const QString strFolder = AddFolder("large");
    WritePicture(strFolder + "/large.png", 1, {5000, 4000}); // takes longer than the limit

    std::chrono::microseconds usBest = std::chrono::microseconds::max();
    for (int iClosing = 0; iClosing < CLOSINGS; ++iClosing)
    {
        CLS_PictureWindow* pWindow = Open(strFolder);
        ASSERT_TRUE(RunUntil([&] { return CountRows(*pWindow) == 1 && CountRuns(strFolder) == 1; }));
        usBest = std::min(usBest, Close(pWindow));
        EXPECT_TRUE(RunUntil([&] { return !HasWork(strFolder); }));
    }
    EXPECT_LT(usBest, CLOSING_LIMIT) << usBest.count() << " microseconds";
}

TEST_F(PictureWindowTest, ClosesAtOnceWhileAnotherWindowGoesOn)
{
    constexpr int OTHERS = 400;
    const QString strMany = AddManyPictures("many");
    const CLS_PictureWindow& wndOther = *Open(AddPictures("other", OTHERS));

    std::chrono::microseconds usBest = std::chrono::microseconds::max();
    for (int iClosing = 0; iClosing < CLOSINGS; ++iClosing)
    {
        CLS_PictureWindow* pWindow = Open(strMany);
        ASSERT_TRUE(RunUntil([&] { return CountShown(*pWindow) >= 20; }));
        ASSERT_LT(CountShown(*pWindow), MANY);
        usBest = std::min(usBest, Close(pWindow));
        EXPECT_TRUE(RunUntil([&] { return !HasWork(strMany); }));
    }
    EXPECT_LT(usBest, CLOSING_LIMIT) << usBest.count() << " microseconds";
    RecordProperty("closing_us", static_cast<int>(usBest.count()));

    EXPECT_THAT(GetWindows(), ::testing::ElementsAre(&wndOther));
    ASSERT_TRUE(RunUntil([&] { return CountShown(wndOther) == OTHERS; }));
    ExpectAllThumbnails(wndOther);
    EXPECT_TRUE(RunUntil([&] { return GetStatus(wndOther) == "400 pictures"; }));

    const ST_PoolSnapshot stAfter = Pool().TakeSnapshot();
    EXPECT_EQ(0U, stAfter.m_uiQueued);
    EXPECT_EQ(0U, stAfter.m_stCounters.m_uiFailed);
    EXPECT_EQ(stAfter.m_stCounters.m_uiSubmitted,
              stAfter.m_stCounters.m_uiRun + stAfter.m_stCounters.m_uiCancelled);
}

TEST_F(PictureWindowTest, MarksBrokenPicturesAndCountsThem)
{
    const QString strFolder = AddPictures("pictures", 8);
    WriteBytes(strFolder + "/text.png", "no picture");
    ASSERT_TRUE(QFile::link("missing.jpg", strFolder + "/x link.jpg"));
    ASSERT_TRUE(QFile::copy(strFolder + "/picture 0.png", strFolder + "/x short.png"));
    ASSERT_TRUE(QFile::resize(strFolder + "/x short.png", 100));

    const CLS_PictureWindow& wndPictures = *Open(strFolder);
    ASSERT_TRUE(RunUntil([&] { return GetStatus(wndPictures) == "11 pictures, 3 broken"; }));
    ASSERT_TRUE(RunUntil([&] { return CountShown(wndPictures) == 11; }));
    for (int iRow = 0; iRow < 8; ++iRow)
    {
        ExpectThumbnail(wndPictures, iRow);
        EXPECT_FALSE(GetData(wndPictures, iRow, Qt::ForegroundRole).isValid());
    }
    for (int iRow = 8; iRow < 11; ++iRow)
    {
        EXPECT_TRUE(GetData(wndPictures, iRow, Qt::ForegroundRole).isValid());
    }
    EXPECT_EQ("text.png: Unsupported image format",
              GetData(wndPictures, 8, Qt::ToolTipRole).toString().toStdString());
    EXPECT_EQ("x link.jpg: No such file or directory",
              GetData(wndPictures, 9, Qt::ToolTipRole).toString().toStdString());
    EXPECT_EQ("x short.png: Unable to read image data",
              GetData(wndPictures, 10, Qt::ToolTipRole).toString().toStdString());
}

TEST_F(PictureWindowTest, SaysWhyNoPictureIsShown)
{
    const QString strEmpty = AddFolder("empty");
    const CLS_PictureWindow& wndEmpty = *Open(strEmpty);
    const CLS_PictureWindow& wndMissing = *Open(strEmpty + "/missing");
    const auto& wgtEmpty = *wndEmpty.findChild<QLabel*>("notice");
    const auto& wgtMissing = *wndMissing.findChild<QLabel*>("notice");

    ASSERT_TRUE(RunUntil([&] { return wgtEmpty.isVisible() && wgtMissing.isVisible(); }));
    EXPECT_EQ("No pictures in " + strEmpty.toStdString(), wgtEmpty.text().toStdString());
    EXPECT_EQ("Cannot read " + strEmpty.toStdString() + "/missing: No such file or directory",
              wgtMissing.text().toStdString());
    EXPECT_TRUE(RunUntil([&] { return GetStatus(wndEmpty) == "0 pictures"; }));
}

TEST_F(PictureWindowTest, SaysThatThePoolTakesNoTasks)
{
    const QString strFolder = AddFolder("empty");
    const CLS_PoolScope clsPool{CLS_PoolLibrary(STAND_IN)};
    const std::unique_ptr<CLS_PictureWindow> pWindow(
        CLS_PictureWindow::Open(clsPool, GetWindowThread(), strFolder));

    EXPECT_EQ("Cannot read " + strFolder.toStdString() + ": The task pool does not take tasks",
              pWindow->findChild<QLabel*>("notice")->text().toStdString());
    EXPECT_EQ("0 pictures", GetStatus(*pWindow));
}

TEST_F(PictureWindowTest, OpensASecondWindowOfTheFolder)
{
    const CLS_PictureWindow& wndFirst = *Open(AddPictures("pictures", 4));
    const QList<QAction*> lstActions = wndFirst.findChildren<QAction*>();
    const auto itAction =
        std::find_if(lstActions.begin(), lstActions.end(),
                     [](const QAction* _pAction) { return _pAction->text() == "&New Window"; });
    ASSERT_NE(lstActions.end(), itAction);
    (*itAction)->trigger();

    const std::vector<CLS_PictureWindow*> vecWindows = GetWindows();
    ASSERT_EQ(2U, vecWindows.size());
    for (const CLS_PictureWindow* pWindow : vecWindows)
    {
        EXPECT_TRUE(pWindow->isVisible());
        ASSERT_TRUE(RunUntil([&] { return GetStatus(*pWindow) == "4 pictures"; }));
    }
}

TEST_F(PictureWindowTest, EndsTheProgramWithTheLastWindow)
{
    CLS_PictureWindow* pFirst = Open(AddManyPictures("many"));
    CLS_PictureWindow* pSecond = Open(AddPictures("pictures", 4));
    QTimer::singleShot(0, pFirst, [=] { pFirst->close(); });
    QTimer::singleShot(100, pSecond, [=] { pSecond->close(); });

    EXPECT_EQ(0, QApplication::exec());
    EXPECT_TRUE(GetWindows().empty());
}
} // namespace
