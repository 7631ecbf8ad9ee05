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

/// What a window wants to hear of its folder, on its thread.
struct ST_FolderEvents
{
    std::function<void(const ST_PictureList&)> m_funListed;    ///< once, before thumbnails come
    std::function<void(const ST_FolderCounts&)> m_funProgress; ///< ten times a second until all is done
};

/// Lists the pictures of a folder and makes their thumbnails in the background, as many at once as there are
/// cores. Fills the model of a window.
///
/// Threads: the window's. After the end, no event comes and the model does not change.
/// Waits: the end waits for nothing. A worker that reads a picture gives up soon after.
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
    /// Shows names at once, and has their thumbnails made.
    void ShowPictures(const ST_PictureList& _stPictures);

    /// Has one thumbnail made, in the background.
    void RequestThumbnail(int _iRow, const QString& _strName);

    /// A task that tells the window how far the work is.
    CLS_LoopTask StartProgress(const CLS_PoolScope& _clsPool);

    const CLS_HostThread m_clsWindowThread;
    const QString m_strFolder;
    CLS_ThumbnailModel& m_clsModel;
    const ST_FolderEvents m_stEvents;
    const std::shared_ptr<CLS_FolderProgress> m_pProgress; ///< what running tasks use when this has gone
    CLS_TaskOwner m_clsTasks;
    CLS_LoopTask m_clsProgressTask;
};
