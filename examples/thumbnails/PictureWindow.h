#pragma once

#include "QuenHost/CLS_HostThread.h"
#include "QuenHost/CLS_PoolScope.h"
#include "examples/thumbnails/FolderWork.h"
#include "examples/thumbnails/ThumbnailModel.h"

#include <QMainWindow>
#include <QString>

class QLabel;
class QListView;
class QProgressBar;
class QStackedWidget;

/// A window that shows the pictures of a folder. Closing it ends its work in the background.
///
/// Threads: that of QApplication.
class CLS_PictureWindow : public QMainWindow
{
public:
    /// Shows a window, which deletes itself when it is closed. The scope outlives it.
    static CLS_PictureWindow* Open(const CLS_PoolScope& _clsPool, const CLS_HostThread& _clsWindowThread,
                                   const QString& _strFolder);

private:
    CLS_PictureWindow(const CLS_PoolScope& _clsPool, CLS_HostThread _clsWindowThread, QString _strFolder);

    void AddMenu();
    void AddPages();
    void ChooseFolder();
    void ShowList(const ST_PictureList& _stPictures);
    void ShowNotice(const QString& _strText);
    void ShowProgress(const ST_FolderCounts& _stCounts);

    const CLS_PoolScope& m_clsPool;
    const CLS_HostThread m_clsWindowThread;
    const QString m_strFolder;
    CLS_ThumbnailModel m_clsModel;
    QStackedWidget* const m_pPages; ///< shows the view, or the notice in its place
    QListView* const m_pView;
    QLabel* const m_pNotice;
    QProgressBar* const m_pBar;
    CLS_FolderWork m_clsWork; ///< the last member, so that it is destroyed before what it fills
};
