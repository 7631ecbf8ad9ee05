#pragma once

#include "QuenHost/CLS_StopToken.h"

#include <QImage>
#include <QString>

/// A thumbnail, or why there is none.
struct ST_Thumbnail
{
    QImage m_imgPicture; ///< null when there is none
    QString m_strError;  ///< for the user; empty when there is a thumbnail
};

/// Reads a picture, and makes it fit into a square of _iPixels. A smaller picture stays as it is.
///
/// Threads: any. Any thread may make a QImage; only the window's may make a QPixmap.
/// Waits: for the file. A stop request ends the reading early; then the result is of no use.
ST_Thumbnail MakeThumbnail(const QString& _strPath, int _iPixels, const CLS_StopToken& _clsToken);
