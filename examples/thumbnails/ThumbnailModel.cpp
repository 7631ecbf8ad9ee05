#include "examples/thumbnails/ThumbnailModel.h"

#include <QApplication>
#include <QBrush>
#include <QPainter>
#include <QStyle>

CLS_ThumbnailModel::CLS_ThumbnailModel(int _iSide, qreal _dRatio) : m_iSide(_iSide), m_dRatio(_dRatio) {}

void CLS_ThumbnailModel::SetNames(const QStringList& _lstNames)
{
    QPixmap pxmWaiting(GetPixels() / 2, GetPixels() / 2);
    pxmWaiting.fill(QApplication::palette().color(QPalette::Midlight));
    const QPixmap pxmSquare = MakeSquare(pxmWaiting);
    beginResetModel();
    m_vecItems.clear();
    m_vecItems.reserve(_lstNames.size());
    for (const QString& strName : _lstNames)
    {
        m_vecItems.append({strName, pxmSquare, {}});
    }
    endResetModel();
}

void CLS_ThumbnailModel::SetThumbnail(int _iRow, const ST_Thumbnail& _stThumbnail)
{
    const bool bBroken = _stThumbnail.m_imgPicture.isNull();
    const QIcon icnBroken = QApplication::style()->standardIcon(QStyle::SP_MessageBoxWarning);
    ST_Item& stItem = m_vecItems[_iRow];
    stItem.m_strError = _stThumbnail.m_strError;
    stItem.m_pxmSquare =
        MakeSquare(bBroken ? icnBroken.pixmap(m_iSide / 2) : QPixmap::fromImage(_stThumbnail.m_imgPicture));
    emit dataChanged(index(_iRow), index(_iRow));
}

int CLS_ThumbnailModel::rowCount(const QModelIndex& _idxParent) const
{
    return _idxParent.isValid() ? 0 : static_cast<int>(m_vecItems.size());
}

QVariant CLS_ThumbnailModel::data(const QModelIndex& _idxItem, int _iRole) const
{
    const ST_Item& stItem = m_vecItems[_idxItem.row()];
    switch (_iRole)
    {
    case Qt::DisplayRole:
        return stItem.m_strName;
    case Qt::DecorationRole:
        return stItem.m_pxmSquare;
    case Qt::ToolTipRole:
        return stItem.m_strError.isEmpty() ? stItem.m_strName : stItem.m_strName + ": " + stItem.m_strError;
    case Qt::ForegroundRole:
        return stItem.m_strError.isEmpty() ? QVariant() : QBrush(Qt::darkRed);
    default:
        return {};
    }
}

QPixmap CLS_ThumbnailModel::MakeSquare(const QPixmap& _pxmPicture) const
{
    QPixmap pxmSquare(GetPixels(), GetPixels());
    pxmSquare.fill(Qt::transparent);
    QRect rctPicture(QPoint(), _pxmPicture.size());
    rctPicture.moveCenter(pxmSquare.rect().center());
    QPainter(&pxmSquare).drawPixmap(rctPicture, _pxmPicture);
    pxmSquare.setDevicePixelRatio(m_dRatio);
    return pxmSquare;
}
