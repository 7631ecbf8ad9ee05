#include "examples/thumbnails/PictureWindow.h"

#include <QAction>
#include <QDir>
#include <QFileDialog>
#include <QFontMetrics>
#include <QKeySequence>
#include <QLabel>
#include <QListView>
#include <QLocale>
#include <QMenu>
#include <QMenuBar>
#include <QProgressBar>
#include <QStackedWidget>
#include <QStatusBar>
#include <utility>

namespace
{
constexpr int SIDE = 128; ///< the side of a thumbnail's square
constexpr int GAP = 16;   ///< the distance between thumbnails

QString CountText(int _iCount, const QString& _strOne, const QString& _strMany)
{
    return QLocale().toString(_iCount) + " " + (_iCount == 1 ? _strOne : _strMany);
}

QString ProgressText(const ST_FolderCounts& _stCounts)
{
    if (!_stCounts.m_bListed)
    {
        return "Reading the folder";
    }
    QString strText = CountText(_stCounts.m_iFound, "picture", "pictures");
    if (!_stCounts.IsComplete())
    {
        strText = QLocale().toString(_stCounts.m_iMade) + " of " + strText + ", " +
                  QLocale().toString(qRound(_stCounts.m_iMade / _stCounts.m_dSeconds)) + " per second";
    }
    return _stCounts.m_iBroken == 0 ? strText
                                    : strText + ", " + QLocale().toString(_stCounts.m_iBroken) + " broken";
}
} // namespace

CLS_PictureWindow* CLS_PictureWindow::Open(const CLS_PoolScope& _clsPool,
                                           const CLS_HostThread& _clsWindowThread, const QString& _strFolder)
{
    auto* pWindow = new CLS_PictureWindow(_clsPool, _clsWindowThread, _strFolder);
    pWindow->setAttribute(Qt::WA_DeleteOnClose);
    pWindow->show();
    return pWindow;
}

CLS_PictureWindow::CLS_PictureWindow(const CLS_PoolScope& _clsPool, CLS_HostThread _clsWindowThread,
                                     QString _strFolder)
    : m_clsPool(_clsPool), m_clsWindowThread(std::move(_clsWindowThread)), m_strFolder(std::move(_strFolder)),
      m_clsModel(SIDE, devicePixelRatioF()), m_pPages(new QStackedWidget(this)),
      m_pView(new QListView(m_pPages)), m_pNotice(new QLabel(m_pPages)), m_pBar(new QProgressBar(this)),
      m_clsWork(_clsPool, m_clsWindowThread, m_strFolder, m_clsModel,
                {[this](const ST_PictureList& _stPictures) { ShowList(_stPictures); },
                 [this](const ST_FolderCounts& _stCounts) { ShowProgress(_stCounts); }})
{
    setWindowTitle(QDir(m_strFolder).dirName());
    resize(800, 600);
    AddMenu();
    AddPages();
    m_pBar->setMaximumWidth(200);
    statusBar()->addPermanentWidget(m_pBar);
    ShowProgress({});
    m_clsWork.Start();
}

void CLS_PictureWindow::AddMenu()
{
    QMenu* pMenu = menuBar()->addMenu("&File");
    const auto funNewWindow = [this] { Open(m_clsPool, m_clsWindowThread, m_strFolder); };
    pMenu->addAction("&New Window", QKeySequence::New, this, funNewWindow);
    pMenu->addAction("&Open Folder...", QKeySequence::Open, this, [this] { ChooseFolder(); });
    pMenu->addAction("&Close", QKeySequence::Close, this, [this] { close(); });
}

void CLS_PictureWindow::AddPages()
{
    m_pView->setModel(&m_clsModel);
    m_pView->setViewMode(QListView::IconMode);
    m_pView->setMovement(QListView::Static);
    m_pView->setResizeMode(QListView::Adjust);
    m_pView->setUniformItemSizes(true);
    m_pView->setIconSize(QSize(SIDE, SIDE));
    m_pView->setGridSize(QSize(SIDE + GAP, SIDE + GAP + fontMetrics().height()));
    m_pNotice->setObjectName("notice");
    m_pNotice->setAlignment(Qt::AlignCenter);
    m_pNotice->setWordWrap(true);
    m_pPages->addWidget(m_pView);
    m_pPages->addWidget(m_pNotice);
    setCentralWidget(m_pPages);
}

void CLS_PictureWindow::ChooseFolder()
{
    const QString strFolder = QFileDialog::getExistingDirectory(this, "Open Folder", m_strFolder);
    if (!strFolder.isEmpty())
    {
        Open(m_clsPool, m_clsWindowThread, strFolder);
    }
}

void CLS_PictureWindow::ShowList(const ST_PictureList& _stPictures)
{
    if (!_stPictures.m_strError.isEmpty())
    {
        ShowNotice("Cannot read " + m_strFolder + ": " + _stPictures.m_strError);
    }
    else if (_stPictures.m_lstNames.isEmpty())
    {
        ShowNotice("No pictures in " + m_strFolder);
    }
}

void CLS_PictureWindow::ShowNotice(const QString& _strText)
{
    m_pNotice->setText(_strText);
    m_pPages->setCurrentWidget(m_pNotice);
}

void CLS_PictureWindow::ShowProgress(const ST_FolderCounts& _stCounts)
{
    statusBar()->showMessage(ProgressText(_stCounts));
    m_pBar->setMaximum(_stCounts.m_iFound); // with 0, the bar shows activity without progress
    m_pBar->setValue(_stCounts.m_iMade);
    m_pBar->setVisible(!_stCounts.IsComplete());
}
