#pragma once

#include <QImage>
#include <QString>

// The image object: a multi-page TIFF loaded frame by frame.
class ImageFile {
public:
    // False when the file cannot be loaded (missing, incomplete, unreadable).
    bool LoadFile(const QString& fileName);
    int FrameCount() const { return m_frameCount; }
    int ActiveFrame() const { return m_activeFrame; }
    // 1-based, as the frames are counted for the user.
    void setActiveFrame(int frame);
    int Width() const;
    int Height() const;
    // The active frame as a picture.
    QImage Picture() const;

private:
    QString m_fileName;
    int m_frameCount = 0;
    int m_activeFrame = 0;
};
