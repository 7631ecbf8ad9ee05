#pragma once

#include "examples/thumbnails/Thumbnail.h"

#include <QAbstractListModel>
#include <QPixmap>
#include <QStringList>
#include <QVector>

/// The model of the pictures of a folder. Each has a name and a square, which contains the thumbnail or a
/// mark: waiting or broken.
///
/// Threads: the window's.
class CLS_ThumbnailModel : public QAbstractListModel
{
public:
    /// The side of a square is _iSide units of the window. A unit has _dRatio pixels, 2 on a dense screen.
    CLS_ThumbnailModel(int _iSide, qreal _dRatio);

    /// Replaces all pictures. The new ones are marked as waiting.
    void SetNames(const QStringList& _lstNames);

    /// Shows the thumbnail of a row, or marks it as broken.
    void SetThumbnail(int _iRow, const ST_Thumbnail& _stThumbnail);

    /// The side of a square, in pixels.
    int GetPixels() const { return qRound(m_iSide * m_dRatio); }

    int rowCount(const QModelIndex& _idxParent = {}) const override;
    QVariant data(const QModelIndex& _idxItem, int _iRole) const override;

private:
    struct ST_Item
    {
        QString m_strName;
        QPixmap m_pxmSquare;
        QString m_strError; ///< empty unless the picture is broken
    };

    /// Returns the picture, centred in a square.
    QPixmap MakeSquare(const QPixmap& _pxmPicture) const;

    const int m_iSide;
    const qreal m_dRatio;
    QVector<ST_Item> m_vecItems;
};
