#include "tests/thumbnails/WindowTest.h"

#include "tests/thumbnails/PictureFiles.h"

#include <QAbstractItemModel>
#include <QApplication>
#include <QDir>
#include <QEvent>
#include <QObject>
#include <QPixmap>
#include <QStatusBar>
#include <array>
#include <chrono>

namespace
{
/// The formats and sizes of pictures, used in turn.
struct ST_Kind
{
    const char* m_szFormat;
    QSize m_szPicture;
};

const std::array<ST_Kind, 4> KINDS{
    {{"png", {320, 240}}, {"jpg", {200, 300}}, {"bmp", {160, 160}}, {"png", {64, 32}}}};

const ST_Kind& GetKind(int _iNumber)
{
    return KINDS[static_cast<std::size_t>(_iNumber) % KINDS.size()];
}

/// Returns the area of a picture that is scaled to fit into a square and centred.
QRect GetArea(const QSize& _szPicture, int _iSide)
{
    const QSize szFit = _szPicture.boundedTo(_szPicture.scaled(_iSide, _iSide, Qt::KeepAspectRatio));
    return {QPoint((_iSide - szFit.width()) / 2, (_iSide - szFit.height()) / 2), szFit};
}
} // namespace

CLS_WindowTest::~CLS_WindowTest()
{
    for (CLS_PictureWindow* pWindow : GetWindows())
    {
        delete pWindow;
    }
}

QString CLS_WindowTest::AddFolder(const std::string& _strName) const
{
    const QString strFolder = QString::fromStdString(m_clsFolder.GetPath(_strName));
    EXPECT_TRUE(QDir().mkdir(strFolder));
    return strFolder;
}

QString CLS_WindowTest::AddPictures(const std::string& _strName, int _iPictures) const
{
    const QString strFolder = AddFolder(_strName);
    for (int iNumber = 0; iNumber < _iPictures; ++iNumber)
    {
        const ST_Kind& stKind = GetKind(iNumber);
        const QString strName = QString("picture %1.%2").arg(iNumber).arg(stKind.m_szFormat);
        WritePicture(QDir(strFolder).filePath(strName), iNumber, stKind.m_szPicture);
    }
    return strFolder;
}

CLS_PictureWindow* CLS_WindowTest::Open(const QString& _strFolder)
{
    CLS_PictureWindow* pWindow = CLS_PictureWindow::Open(m_clsPool, GetWindowThread(), _strFolder);
    int& iShown = m_mapShown[pWindow];
    iShown = 0;
    QObject::connect(GetView(*pWindow).model(), &QAbstractItemModel::dataChanged, [&iShown] { ++iShown; });
    return pWindow;
}

std::chrono::microseconds CLS_WindowTest::Close(CLS_PictureWindow* _pWindow)
{
    const auto tpStart = std::chrono::steady_clock::now();
    _pWindow->close();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - tpStart);
}

std::vector<CLS_PictureWindow*> CLS_WindowTest::GetWindows()
{
    std::vector<CLS_PictureWindow*> vecWindows;
    for (QWidget* pWidget : QApplication::topLevelWidgets())
    {
        if (auto* pWindow = dynamic_cast<CLS_PictureWindow*>(pWidget))
        {
            vecWindows.push_back(pWindow);
        }
    }
    return vecWindows;
}

QListView& CLS_WindowTest::GetView(const CLS_PictureWindow& _wndSeen)
{
    return *_wndSeen.findChild<QListView*>();
}

int CLS_WindowTest::CountRows(const CLS_PictureWindow& _wndSeen)
{
    return GetView(_wndSeen).model()->rowCount();
}

QVariant CLS_WindowTest::GetData(const CLS_PictureWindow& _wndSeen, int _iRow, int _iRole)
{
    const QAbstractItemModel* pModel = GetView(_wndSeen).model();
    return pModel->data(pModel->index(_iRow, 0), _iRole);
}

std::string CLS_WindowTest::GetStatus(const CLS_PictureWindow& _wndSeen)
{
    return _wndSeen.findChild<QStatusBar*>()->currentMessage().toStdString();
}

void CLS_WindowTest::ExpectThumbnail(const CLS_PictureWindow& _wndSeen, int _iRow)
{
    const auto pxmSquare = GetData(_wndSeen, _iRow, Qt::DecorationRole).value<QPixmap>();
    ExpectSquare(_wndSeen, _iRow, pxmSquare.toImage());
}

void CLS_WindowTest::ExpectSquare(const CLS_PictureWindow& _wndSeen, int _iRow, const QImage& _imgSquare)
{
    const QString strName = GetData(_wndSeen, _iRow, Qt::DisplayRole).toString();
    const int iNumber = strName.section(' ', 1).section('.', 0, 0).toInt();
    ExpectPicture(_imgSquare, GetArea(GetKind(iNumber).m_szPicture, _imgSquare.width()), iNumber);
}
