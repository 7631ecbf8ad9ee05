#pragma once

#include "QuenHost/CLS_PoolScope.h"
#include "examples/thumbnails/PictureWindow.h"
#include "examples/thumbnails/WindowThread.h"
#include "tests/support/TempFolder.h"
#include "tests/support/Waiting.h"

#include <QCoreApplication>
#include <QImage>
#include <QListView>
#include <QString>
#include <QVariant>
#include <chrono>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <vector>

/// Base of the tests with real windows. The test makes folders of pictures, and shares a thread with the
/// windows.
class CLS_WindowTest : public ::testing::Test
{
protected:
    /// Closes the remaining windows.
    ~CLS_WindowTest() override;

    /// Makes a new folder.
    QString AddFolder(const std::string& _strName) const;

    /// Makes a new folder with pictures of several formats and sizes. The file "picture N" shows picture N.
    QString AddPictures(const std::string& _strName, int _iPictures) const;

    CLS_PictureWindow* Open(const QString& _strFolder);

    /// Closes and destroys the window, as the event loop would. Returns how long that took.
    static std::chrono::microseconds Close(CLS_PictureWindow* _pWindow);

    /// Runs the event loop until the condition holds. False if it does not within the limit.
    template <typename T_Condition>
    [[nodiscard]] static bool RunUntil(T_Condition _funCondition)
    {
        return WaitUntil(
            [&]
            {
                QCoreApplication::processEvents();
                return _funCondition();
            });
    }

    /// Returns all open windows.
    static std::vector<CLS_PictureWindow*> GetWindows();

    static QListView& GetView(const CLS_PictureWindow& _wndSeen);
    static int CountRows(const CLS_PictureWindow& _wndSeen);
    static QVariant GetData(const CLS_PictureWindow& _wndSeen, int _iRow, int _iRole);
    static std::string GetStatus(const CLS_PictureWindow& _wndSeen);

    /// Returns how many thumbnails the window has shown so far.
    int CountShown(const CLS_PictureWindow& _wndSeen) const { return m_mapShown.at(&_wndSeen); }

    /// Expects the window, or an image of the row's square, to show the picture that the row names.
    static void ExpectThumbnail(const CLS_PictureWindow& _wndSeen, int _iRow);
    static void ExpectSquare(const CLS_PictureWindow& _wndSeen, int _iRow, const QImage& _imgSquare);

    const CLS_PoolScope& Pool() const { return m_clsPool; }

private:
    const CLS_TempFolder m_clsFolder;
    std::map<const CLS_PictureWindow*, int> m_mapShown;
    const CLS_PoolScope m_clsPool{CLS_PoolLibrary(POOL_LIBRARY)};
};
