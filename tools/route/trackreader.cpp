// Format sniffing: an XML document is told by its root element, an NMEA log by
// a sentence near its start; the file extension is not trusted.
#include "trackreader.h"

#include "gpxreader.h"
#include "kmlreader.h"
#include "nmeareader.h"

#include <QBuffer>
#include <QFile>

namespace {

using Reader = ReadResult (*)(QIODevice &);

struct XmlFormat
{
    const char *root;
    Reader read;
};

const XmlFormat XmlFormats[] = {
    {"gpx", readGpx},
    {"kml", readKml},
};

// Enough for the header of any logger, and for its first lines of sentences.
constexpr int SniffedBytes = 64 * 1024;

const QString UnknownFormat = QStringLiteral("unknown track format (expected GPX, KML or an NMEA log)");

// The reader for an XML document, chosen by its root element.
ReadResult readXml(const QByteArray &content)
{
    QXmlStreamReader xml(content);
    if (!xml.readNextStartElement())
        return xml.hasError() ? xmlFailure(xml) : ReadResult{{}, UnknownFormat};
    for (const XmlFormat &format : XmlFormats) {
        if (xml.name() == QLatin1String(format.root)) {
            QBuffer buffer;
            buffer.setData(content);
            buffer.open(QIODevice::ReadOnly);
            return format.read(buffer);
        }
    }
    return {{}, UnknownFormat};
}

} // namespace

ReadResult readTrackFile(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {{}, QStringLiteral("cannot read the file: %1").arg(file.errorString())};
    const QByteArray content = file.readAll();
    if (file.error() != QFileDevice::NoError)
        return {{}, QStringLiteral("cannot read the file: %1").arg(file.errorString())};

    QByteArray start = content.left(SniffedBytes);
    if (start.startsWith("\xEF\xBB\xBF"))
        start.remove(0, 3);
    start = start.trimmed();
    if (start.isEmpty())
        return {{}, QStringLiteral("the file is empty")};

    ReadResult result;
    if (start.startsWith('<')) {
        result = readXml(content);
    } else if (looksLikeNmea(start)) {
        QBuffer buffer;
        buffer.setData(content);
        buffer.open(QIODevice::ReadOnly);
        result = readNmea(buffer);
    } else {
        return {{}, UnknownFormat};
    }
    if (result.error.isEmpty() && result.track.points.isEmpty())
        result.error = QStringLiteral("no track point found");
    return result;
}
