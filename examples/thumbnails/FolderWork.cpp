#include "examples/thumbnails/FolderWork.h"

#include "QuenHost/CLS_Delivery.h"
#include "QuenHost/CLS_Steps.h"
#include "QuenHost/PoolCall.h"
#include "QuenHost/SubmitAndDeliver.h"
#include "examples/thumbnails/Thumbnail.h"

#include <QDir>
#include <QThread>
#include <algorithm>
#include <exception>
#include <string>
#include <utility>

namespace
{
constexpr int PROGRESS_MILLISECONDS = 100;
constexpr char NOT_TAKEN[] = "The task pool does not take tasks";
} // namespace

CLS_FolderWork::CLS_FolderWork(const CLS_PoolScope& _clsPool, CLS_HostThread _clsWindowThread,
                               QString _strFolder, CLS_ThumbnailModel& _clsModel, ST_FolderEvents _stEvents)
    : m_clsWindowThread(std::move(_clsWindowThread)), m_strFolder(std::move(_strFolder)),
      m_clsModel(_clsModel), m_stEvents(std::move(_stEvents)),
      m_pProgress(std::make_shared<CLS_FolderProgress>()),
      m_clsTasks(_clsPool, m_strFolder.toStdString(),
                 ST_OwnerOptions{static_cast<unsigned>(std::max(1, QThread::idealThreadCount())), {}}),
      m_clsProgressTask(StartProgress(_clsPool))
{
}

CLS_FolderWork::~CLS_FolderWork()
{
    m_clsTasks.RemoveTasksLater();
    m_clsProgressTask.RemoveLater();
}

void CLS_FolderWork::Start()
{
    const auto funList = [strFolder = m_strFolder](const CLS_StopToken& _clsToken)
    { return FindPictures(strFolder, _clsToken); };
    const auto funShow = [this](const ST_PictureList& _stPictures) { ShowPictures(_stPictures); };
    if (!SubmitAndDeliver(m_clsTasks, m_clsWindowThread, funList, funShow, "list of pictures"))
    {
        ShowPictures({{}, NOT_TAKEN});
    }
}

void CLS_FolderWork::ShowPictures(const ST_PictureList& _stPictures)
{
    m_pProgress->SetFound(static_cast<int>(_stPictures.m_lstNames.size()));
    m_clsModel.SetNames(_stPictures.m_lstNames);
    m_stEvents.m_funListed(_stPictures);
    for (int iRow = 0; iRow < m_clsModel.rowCount(); ++iRow)
    {
        RequestThumbnail(iRow, _stPictures.m_lstNames[iRow]);
    }
    m_stEvents.m_funProgress(m_pProgress->GetCounts());
}

void CLS_FolderWork::RequestThumbnail(int _iRow, const QString& _strName)
{
    const auto funMake = [strPath = QDir(m_strFolder).filePath(_strName), iPixels = m_clsModel.GetPixels(),
                          pProgress = m_pProgress](const CLS_StopToken& _clsToken)
    {
        ST_Thumbnail stThumbnail;
        const auto funTry = [&] { stThumbnail = MakeThumbnail(strPath, iPixels, _clsToken); };
        const std::exception_ptr pException = PoolCall::Catch(funTry);
        pProgress->AddMade(stThumbnail.m_imgPicture.isNull()); // whatever happens, so that progress completes
        if (pException)
        {
            std::rethrow_exception(pException);
        }
        return stThumbnail;
    };
    const auto funShow = [this, _iRow](const ST_Thumbnail& _stThumbnail)
    { m_clsModel.SetThumbnail(_iRow, _stThumbnail); };
    const auto funShowError = [this, _iRow](const ST_TaskFailure& _stFailure)
    {
        const std::string strError = PoolCall::Describe(_stFailure.m_pException);
        m_clsModel.SetThumbnail(_iRow, {{}, QString::fromStdString(strError)});
    };
    const std::string strName = _strName.toStdString();
    if (!FirstStep(funMake, strName)
             .Deliver(m_clsWindowThread, funShow, strName)
             .OnFailure(m_clsWindowThread, funShowError, strName)
             .Submit(m_clsTasks))
    {
        m_clsModel.SetThumbnail(_iRow, {{}, NOT_TAKEN});
        m_pProgress->AddMade(true);
    }
}

CLS_LoopTask CLS_FolderWork::StartProgress(const CLS_PoolScope& _clsPool)
{
    const auto funShow = [this](const ST_FolderCounts& _stCounts)
    {
        m_stEvents.m_funProgress(_stCounts);
        if (_stCounts.IsComplete())
        {
            m_clsProgressTask.RemoveLater();
        }
    };
    const auto funTell =
        [pProgress = m_pProgress, clsNews = CLS_Delivery(m_clsTasks, m_clsWindowThread), funShow]
    { clsNews.Post([funShow, stCounts = pProgress->GetCounts()] { funShow(stCounts); }, "progress"); };
    return CLS_LoopTask(_clsPool, funTell, PROGRESS_MILLISECONDS, m_strFolder.toStdString() + " progress");
}
