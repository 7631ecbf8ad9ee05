#pragma once

#include "QuenHost/CLS_StopToken.h"

#include <QImage>
#include <QString>

/// A thumbnail, or the reason why there is none.
struct ST_Thumbnail
{
    QImage m_imgPicture; ///< null if there is none
    QString m_strError;  ///< for the user; empty if there is a thumbnail
};

/// Reads a picture and scales it to fit into a square of _iPixels. A smaller picture is not scaled.
///
/// Threads: any. Any thread may make a QImage; only the window's may make a QPixmap.
/// Waits: for the file. A stop request ends the reading early; the result is then useless.
ST_Thumbnail MakeThumbnail(const QString& _strPath, int _iPixels, const CLS_StopToken& _clsToken);
