#include "VEKAudioFileModifier.h"

#include "VEKTagFile.h"
#include "core/VEKLocalizedString.h"
#include "core/VEKPaths.h"

#include <QFileInfo>
#include <QMap>

#include <optional>

namespace {

const QString kDomain = QStringLiteral("VEKAudioFileModifier");

enum ErrorCode {
    FileMissing = 1,
    OpenFailed = 2,
    Unsupported = 3,
    WriteFailed = 4,
};

} // namespace

struct VEKAudioFileModifier::Impl {
    QString path;
    VEKTagFile::Kind kind = VEKTagFile::Kind::Unknown;
    std::unique_ptr<VEKTagFile> tags; // null for kinds TagLib cannot write
    QMap<QString, QString> pending;   // key to new text; empty removes the tag
    std::optional<QByteArray> picture;
};

VEKAudioFileModifier::VEKAudioFileModifier() : d(std::make_unique<Impl>()) {}

VEKAudioFileModifier::~VEKAudioFileModifier() = default;

bool VEKAudioFileModifier::initWithURL(const QString &path, VEKError *error)
{
    d = std::make_unique<Impl>();
    d->path = path.isEmpty() ? QString() : VEKPaths::absolute(path);
    const auto fail = [&](ErrorCode code, const char *reason) {
        VEKError::set(
            error, VEKError(kDomain, code, VEKLocalizedString("Error_audioFileOpen"),
                            VEKPaths::readable(d->path) + QStringLiteral(": ") + VEKLocalizedString(reason)));
        return false;
    };

    if (d->path.isEmpty() || !VEKPaths::existsAsFile(d->path))
        return fail(FileMissing, "Error_audioFileMissing");

    auto tags = std::make_unique<VEKTagFile>();
    if (tags->open(d->path, true)) {
        d->kind = tags->kind();
        d->tags = std::move(tags);
        return true;
    }
    d->kind = tags->kind();
    if (!VEKTagFile::canWrite(d->kind))
        return true; // commit() reports it, once there is something to write
    if (!VEKPaths::canReplace(d->path))
        return fail(OpenFailed, "Error_audioFileTagsReadOnly");
    return fail(OpenFailed, "Error_audioFileDamaged");
}

std::unique_ptr<VEKAudioFileModifier> VEKAudioFileModifier::open(const QString &path, VEKError *error)
{
    auto modifier = std::make_unique<VEKAudioFileModifier>();
    if (!modifier->initWithURL(path, error))
        return nullptr;
    return modifier;
}

bool VEKAudioFileModifier::supportsKey(const QString &key) const
{
    return d->tags && VEKTagFile::textKeys().contains(key);
}

void VEKAudioFileModifier::setValue(const QString &key, const QVariant &value)
{
    if (!VEKTagFile::textKeys().contains(key))
        return;
    d->pending.insert(key, value.isValid() && !value.isNull() ? value.toString().trimmed() : QString());
}

void VEKAudioFileModifier::setImageData(const QByteArray &data)
{
    d->picture = data;
}

bool VEKAudioFileModifier::commit(VEKError *error)
{
    if (d->pending.isEmpty() && !d->picture)
        return true;
    if (!d->tags) {
        VEKError::set(error, VEKError(kDomain, Unsupported, VEKLocalizedString("Error_audioFileTags"),
                                      VEKPaths::readable(d->path) + QStringLiteral(": ")
                                          + VEKLocalizedString("Error_audioFileTagsUnsupported")));
        return false;
    }
    // The file is replaced whole only when the new one is complete and synced: a failure (a
    // full disk) leaves it as it was.
    if (!d->tags->write(d->pending, d->picture)) {
        const QString why = d->tags->errorText();
        VEKError::set(error,
                      VEKError(kDomain, WriteFailed, VEKLocalizedString("Error_audioFileTags"),
                               why.isEmpty() ? VEKPaths::readable(d->path)
                                             : VEKPaths::readable(d->path) + QStringLiteral(": ") + why));
        auto reopened = std::make_unique<VEKTagFile>();
        d->tags = reopened->open(d->path, true) ? std::move(reopened) : nullptr;
        return false;
    }
    d->pending.clear();
    d->picture.reset();
    return true;
}
