// The update manifest as the server sends it. Properties: the numbers stay in
// their ranges, and the package file named after the offered version stays
// directly inside the downloads folder, one name without control characters.

#include "fuzz_common.h"
#include "shell/update_checker.h"

#include <QDir>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray body = fuzz::bytes(data, size);
    UpdateManifest manifest;
    if (!parse_update_manifest(body, &manifest))
        return 0;
    fuzz::check(manifest.build >= 0, "negative build");
    fuzz::check(manifest.expectedSize >= 0 && manifest.expectedSize <= (qint64(1) << 53),
                "size out of range");

    const QString downloads = QStringLiteral("/downloads/quillo");
    const QString name = update_package_file_name(manifest.version, manifest.build);
    fuzz::check(!name.contains(QLatin1Char('/')) && !name.contains(QLatin1Char('\\')),
                "package name holds a folder separator", name);
    for (const QChar c : name)
        fuzz::check(c.category() != QChar::Other_Control, "control character in package name",
                    name);
    const QString path = QDir::cleanPath(QDir(downloads).filePath(name));
    fuzz::check(QFileInfo(path).absolutePath() == downloads, "package leaves the downloads folder",
                path);
    fuzz::check(name.endsWith(QStringLiteral("_build%1.bar").arg(manifest.build)),
                "package name lost its build", name);
    return 0;
}
