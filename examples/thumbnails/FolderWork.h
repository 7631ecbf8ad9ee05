#pragma once

#include "QuenHost/CLS_HostThread.h"
#include "QuenHost/CLS_LoopTask.h"
#include "QuenHost/CLS_TaskOwner.h"
#include "examples/thumbnails/FolderProgress.h"
#include "examples/thumbnails/PictureFolder.h"
#include "examples/thumbnails/ThumbnailModel.h"

#include <QString>
#include <functional>
#include <memory>

/// The callbacks of a window, which run on its thread.
struct ST_FolderEvents
{
    std::function<void(const ST_PictureList&)> m_funListed;    ///< once, before any thumbnail
    std::function<void(const ST_FolderCounts&)> m_funProgress; ///< ten times a second until all is done
};

/// Lists the pictures of a folder, makes their thumbnails in the background, and fills the model of a window.
///
/// As many thumbnails are made at once as there are cores.
///
/// Threads: the window's. After the destructor, no callback runs and the model does not change.
/// Waits: the destructor does not wait. A worker that is reading a picture stops soon afterwards.
class CLS_FolderWork
{
public:
    CLS_FolderWork(const CLS_PoolScope& _clsPool, CLS_HostThread _clsWindowThread, QString _strFolder,
                   CLS_ThumbnailModel& _clsModel, ST_FolderEvents _stEvents);
    ~CLS_FolderWork();

    CLS_FolderWork(const CLS_FolderWork&) = delete;
    CLS_FolderWork& operator=(const CLS_FolderWork&) = delete;

    /// Starts the work. Call it once.
    void Start();

private:
    /// Shows the names immediately, and submits a task for each thumbnail.
    void ShowPictures(const ST_PictureList& _stPictures);

    /// Submits a task that makes one thumbnail.
    void RequestThumbnail(int _iRow, const QString& _strName);

    /// Makes a task that reports the progress to the window.
    CLS_LoopTask StartProgress(const CLS_PoolScope& _clsPool);

    const CLS_HostThread m_clsWindowThread;
    const QString m_strFolder;
    CLS_ThumbnailModel& m_clsModel;
    const ST_FolderEvents m_stEvents;
    const std::shared_ptr<CLS_FolderProgress> m_pProgress; ///< shared with tasks that outlast this object
    CLS_TaskOwner m_clsTasks;
    CLS_LoopTask m_clsProgressTask;
};
