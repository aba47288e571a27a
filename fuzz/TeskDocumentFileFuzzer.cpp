// Reads arbitrary bytes as a Tesk document, the way a damaged or hand-edited file reaches the
// reader, and checks what Tesk relies on when it opens and later saves such a file:
//  - a refused file comes with a sentence for the user;
//  - what was read is saved and read back unchanged;
//  - the effects dictionary gives settings whose own dictionary reads back to the same
//    settings, straight and through a saved file;
//  - the song reference reads only what it writes itself.
// The reference is never resolved: that searches the file system.
// Any broken promise aborts with the property and the input, so libFuzzer keeps the input.
#include "audio/TeskEffectsSettings.h"
#include "document/TeskDocumentFile.h"
#include "document/TeskFileReference.h"

#include <QDebug>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace {

using namespace tesk;

[[noreturn]] void fail(const char* promise, const QByteArray& input) {
    std::fprintf(stderr, "Broken: %s\nInput (%lld bytes):\n%s\n", promise,
                 static_cast<long long>(input.size()), input.toPercentEncoding("{}[]\":, ").data());
    std::abort();
}

QString describe(const QVariantMap& map) {
    QString text;
    QDebug(&text) << map;
    return text;
}

void checkEffectsSettings(const QVariantMap& dictionary, const QByteArray& input) {
    const TeskEffectsSettings settings(dictionary);
    const QVariantMap written = settings.dictionaryRepresentation();
    const QVariantMap rewritten = TeskEffectsSettings(written).dictionaryRepresentation();
    if (rewritten != written) {
        std::fprintf(stderr, "written:   %s\nrewritten: %s\n", qPrintable(describe(written)),
                     qPrintable(describe(rewritten)));
        fail("effect settings read back from their own dictionary differ", input);
    }

    // As a save and a reopen do it: the dictionary goes through the file.
    TeskDocumentContents saved;
    saved.effectsSettings = written;
    const std::optional<TeskDocumentContents> reopened =
        readDocumentContents(writeDocumentContents(saved));
    if (!reopened || !reopened->effectsSettings)
        fail("saved effect settings do not read back at all", input);
    const QVariantMap reread =
        TeskEffectsSettings(*reopened->effectsSettings).dictionaryRepresentation();
    if (reread != written) {
        std::fprintf(stderr, "saved:    %s\nreopened: %s\n", qPrintable(describe(written)),
                     qPrintable(describe(reread)));
        fail("effect settings change through a saved document", input);
    }
}

void checkSongReference(const QByteArray& alias, const QByteArray& input) {
    const std::optional<TeskFileReference> reference = TeskFileReference::fromBytes(alias);
    if (!reference)
        return;
    if (reference->toBytes() != alias)
        fail("the song reference accepted bytes that it would not write itself", input);
    if (reference->fileName().isEmpty() || reference->fileName().contains(u'/'))
        fail("the song reference holds no plain file name", input);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const QByteArray input =
        QByteArray::fromRawData(reinterpret_cast<const char*>(data), qsizetype(size));

    QString problem;
    const std::optional<TeskDocumentContents> contents = readDocumentContents(input, &problem);
    if (!contents) {
        if (problem.isEmpty())
            fail("a refused document says nothing about why", input);
        return 0;
    }

    const QByteArray saved = writeDocumentContents(*contents);
    QString savedProblem;
    const std::optional<TeskDocumentContents> reopened = readDocumentContents(saved, &savedProblem);
    if (!reopened) {
        std::fprintf(stderr, "saved as:\n%s\nrefused: %s\n", saved.constData(),
                     qPrintable(savedProblem));
        fail("a saved document does not read back", input);
    }
    if (*reopened != *contents) {
        std::fprintf(stderr, "saved as:\n%s\nsaved again as:\n%s\n", saved.constData(),
                     writeDocumentContents(*reopened).constData());
        fail("a saved document reads back different", input);
    }

    if (contents->effectsSettings)
        checkEffectsSettings(*contents->effectsSettings, input);
    if (contents->audioFileAlias)
        checkSongReference(*contents->audioFileAlias, input);
    return 0;
}
