// libFuzzer target for the reply decoder: it must never crash, and must yield either a whole
// record or a reason, the same whether device records are made at once or later. Qt's own JSON parser is the referee for what is JSON at all.
#include "DaemonProtocol.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <cstdlib>

using namespace Qt::StringLiterals;
using namespace Veltrane;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray line(reinterpret_cast<const char *>(data), qsizetype(size));
    const auto result = DaemonProtocol::decodeResponse(line);
    // Devices checked now and made later: accepted and rejected alike, with the same records.
    const auto later = DaemonProtocol::decodeResponse(line, DaemonProtocol::DeviceRecords::WhenAsked);
    if (result.index() != later.index())
        std::abort();

    if (const auto *failure = std::get_if<DecodeFailure>(&result)) {
        if (failure->description.isEmpty() || failure->description != std::get<DecodeFailure>(later).description)
            std::abort();
        return 0;
    }
    if (std::get<DaemonControlResponse>(later) != std::get<DaemonControlResponse>(result))
        std::abort();

    // Accepted: it must be a JSON object, and a boolean "success" must have been read as is. The
    // decoder rejects a key it reads that stands twice, so Qt keeping the last value agrees.
    QJsonParseError error;
    const QJsonDocument reference = QJsonDocument::fromJson(line, &error);
    if (error.error == QJsonParseError::DeepNesting)
        return 0; // Qt's nesting limit is lower than the decoder's; nothing to compare
    if (error.error != QJsonParseError::NoError || !reference.isObject())
        std::abort();
    const auto &response = std::get<DaemonControlResponse>(result);
    const QJsonValue success = reference.object().value(u"success"_s);
    if (success.isBool() != response.success.has_value())
        std::abort();
    if (success.isBool() && success.toBool() != *response.success)
        std::abort();

    // Decoding is a pure function of the bytes.
    if (std::get<DaemonControlResponse>(DaemonProtocol::decodeResponse(line)) != response)
        std::abort();
    return 0;
}
