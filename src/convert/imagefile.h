#pragma once

#include <QImage>
#include <QString>
#include <QVector>

// The image object: a multi-page TIFF loaded frame by frame with libtiff.
// Loading reads every page's description; a frame's pixels are decoded each
// time it is asked for as a picture (a colour page is 100 MB: none is kept).
class ImageFile
{
public:
    // False when the file cannot be loaded (missing, incomplete, unreadable);
    // lastError() then says why.
    bool LoadFile(const QString& fileName);
    int FrameCount() const { return int(m_frames.size()); }
    int ActiveFrame() const { return m_activeFrame; }
    // 1-based, as the frames are counted for the user; out of range raises
    // run-time error 9.
    void setActiveFrame(int frame);
    int Width() const;
    int Height() const;
    // The active frame as a picture: 1-bit pages stay QImage::Format_Mono,
    // colour pages are Format_RGB888, grey pages Format_Grayscale8. A null
    // image when the frame cannot be decoded.
    QImage Picture() const;

    QString fileName() const { return m_fileName; }
    QString lastError() const { return m_lastError; }

    // One page as libtiff describes it.
    struct Frame {
        int width = 0;
        int height = 0;
        int bitsPerSample = 1;
        int samplesPerPixel = 1;
        int photometric = 0;
        int planar = 1;
        bool tiled = false;
    };

private:
    QString m_fileName;
    QVector<Frame> m_frames;
    int m_activeFrame = 0;
    mutable QString m_lastError;
};
