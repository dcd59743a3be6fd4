#include "DaemonProtocol.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QStringDecoder>

#include <simdjson.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <string_view>
#include <vector>

using namespace Qt::StringLiterals;

namespace Veltrane {

const QString &ConnectableDeviceSnapshot::displayName() const
{
    static const QString none;
    if (computerName && !computerName->isEmpty())
        return *computerName;
    if (hostName && !hostName->isEmpty())
        return *hostName;
    return fqdn ? *fqdn : none;
}

namespace DaemonProtocol {

const qsizetype paddingBytes = simdjson::SIMDJSON_PADDING;

QByteArray encodeRequest(const DaemonControlRequest &request)
{
    QByteArray bytes =
        QJsonDocument(QJsonObject{{u"command"_s, request.command}}).toJson(QJsonDocument::Compact);
    bytes.append('\n');
    return bytes;
}

namespace {

using simdjson::dom::element;
using simdjson::dom::element_type;

QString jsonTypeName(element_type type)
{
    switch (type) {
    case element_type::ARRAY:
        return u"an array"_s;
    case element_type::OBJECT:
        return u"an object"_s;
    case element_type::INT64:
    case element_type::UINT64:
    case element_type::DOUBLE:
        return u"a number"_s;
    case element_type::STRING:
        return u"a string"_s;
    case element_type::BOOL:
        return u"a boolean"_s;
    case element_type::NULL_VALUE:
        return u"null"_s;
    }
    return u"an unknown value"_s;
}

// The strings of one reply, written one after another into blocks that they share: one allocation
// per block rather than one per string, and nothing freed until the last string of a block goes.
// Each string is followed by a NUL, as every QString's data is. A string changed later detaches
// as any shared QString does; while it is the last user of its block it may grow in place, over
// text that no string refers to any more.
// A block's reference count is raised once, when it starts, by as many strings as it can hold, and
// lowered by those not made when it is left: an atomic step per string was an eighth of a decode.
// A string dropped in between takes its reference off, so the count stays above zero throughout.
class SharedTextBlocks
{
public:
    SharedTextBlocks() = default;
    SharedTextBlocks(const SharedTextBlocks &) = delete;
    SharedTextBlocks &operator=(const SharedTextBlocks &) = delete;
    ~SharedTextBlocks() { release(); }

    QString text(std::string_view utf8)
    {
        // UTF-8 never takes fewer bytes than UTF-16 takes units; one more unit for the NUL.
        const qsizetype room = qsizetype(utf8.size()) + 1;
        if (!m_block || m_block->allocatedCapacity() - m_used < room)
            startBlock(room);
        char16_t *const begin = m_start + m_used;
        qsizetype length = qsizetype(utf8.size());
        // Nearly all of the daemon's text is ASCII, widened here without a call into the decoder.
        if (std::all_of(utf8.begin(), utf8.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; })) {
            std::copy(utf8.begin(), utf8.end(), begin);
        } else {
            const QChar *end = m_decoder.appendToBuffer(reinterpret_cast<QChar *>(begin),
                                                        QByteArrayView(utf8.data(), qsizetype(utf8.size())));
            length = reinterpret_cast<const char16_t *>(end) - begin;
        }
        begin[length] = u'\0';
        m_used += length + 1;
        ++m_made;
        return QString(QStringPrivate(m_block, begin, length));
    }

private:
    static constexpr qsizetype blockUnits = 64 * 1024;

    void startBlock(qsizetype room)
    {
        release();
        auto [block, start] = QTypedArrayData<char16_t>::allocate(std::max(room, blockUnits));
        Q_CHECK_PTR(block);
        // Every string takes at least one unit, its NUL.
        m_reserved = int(block->allocatedCapacity());
        block->ref_.fetchAndAddRelaxed(m_reserved);
        m_block = block;
        m_start = start;
        m_used = 0;
        m_made = 0;
    }

    void release()
    {
        // This object's own reference, and the reserved ones no string took.
        const int unused = 1 + m_reserved - m_made;
        if (m_block && m_block->ref_.fetchAndSubOrdered(unused) == unused)
            QTypedArrayData<char16_t>::deallocate(m_block);
        m_block = nullptr;
    }

    QTypedArrayData<char16_t> *m_block = nullptr;
    char16_t *m_start = nullptr;
    qsizetype m_used = 0;
    int m_reserved = 0;
    int m_made = 0;
    // Each string on its own, a leading U+FEFF kept as QString::fromUtf8() keeps it.
    QStringDecoder m_decoder{QStringDecoder::Utf8, QStringDecoder::Flag::Stateless | QStringDecoder::Flag::ConvertInitialBom};
};

// The keys of a record, in the order the record lists its fields.
template <class Record>
const std::vector<std::string_view> &keysOf()
{
    static const std::vector<std::string_view> keys = [] {
        std::vector<std::string_view> names;
        const Record record;
        forEachField(record, [&](std::string_view name, const auto &) { names.push_back(name); });
        return names;
    }();
    return keys;
}

// Walks a parsed document into the records. Each read returns false on a type mismatch; the
// callers on the way back up add their key or index, so the path of the offending value costs
// nothing unless a reply is rejected.
class RecordReader
{
public:
    /// `deviceReply` set: the devices are checked as strictly, but their records are left to
    /// the list, which keeps this reply.
    explicit RecordReader(const QByteArray *deviceReply = nullptr) : m_deviceReply(deviceReply) {}

    bool read(element value, std::optional<QString> &out)
    {
        if (value.is_null())
            return true;
        // Only checked, a string's text is not even looked at: its type is on the tape.
        if (!m_keepTexts)
            return value.is_string() || mismatch("a string", value);
        std::string_view text;
        if (value.get(text) != simdjson::SUCCESS)
            return mismatch("a string", value);
        out = m_texts.text(text);
        return true;
    }

    bool read(element value, std::optional<bool> &out)
    {
        if (value.is_null())
            return true;
        bool flag = false;
        if (value.get(flag) != simdjson::SUCCESS)
            return mismatch("a boolean", value);
        out = flag;
        return true;
    }

    bool read(element value, std::optional<double> &out)
    {
        if (value.is_null())
            return true;
        double number = 0;
        // get_double() converts integers of either sign as well as fractions.
        if (!value.is_number() || value.get(number) != simdjson::SUCCESS)
            return mismatch("a number", value);
        out = number;
        return true;
    }

    template <class Record>
    bool read(element value, std::optional<Record> &out)
    {
        if (value.is_null())
            return true;
        Record record;
        if (!readRecord(value, record))
            return false;
        out = std::move(record);
        return true;
    }

    bool read(element value, std::optional<ConnectableDeviceList> &out)
    {
        if (value.is_null())
            return true;
        simdjson::dom::array array;
        if (value.get(array) != simdjson::SUCCESS)
            return mismatch("an array", value);
        if (m_deviceReply) {
            ConnectableDeviceSnapshot scratch;
            m_keepTexts = false;
            const bool checked = readDevices(array, [&]() -> ConnectableDeviceSnapshot & { return scratch; });
            m_keepTexts = true;
            if (checked)
                out = ConnectableDeviceList::ofCheckedReply(*m_deviceReply);
            return checked;
        }
        QList<ConnectableDeviceSnapshot> records;
        records.reserve(qsizetype(array.size()));
        if (!readDevices(array, [&]() -> ConnectableDeviceSnapshot & { return records.emplace_back(); }))
            return false;
        out = ConnectableDeviceList(std::move(records));
        return true;
    }

    // Reads each element into the record `next()` gives.
    template <class Next>
    bool readDevices(simdjson::dom::array array, Next next)
    {
        qsizetype index = 0;
        for (element item : array) {
            // Only the array itself may be null; a null element is a malformed record.
            if (!readRecord(item, next()))
                return failedAt(u'[' + QString::number(index) + u']');
            ++index;
        }
        return true;
    }

    template <class Record>
    bool readRecord(element value, Record &record)
    {
        simdjson::dom::object object;
        if (value.get(object) != simdjson::SUCCESS)
            return mismatch("an object", value);
        const std::vector<std::string_view> &keys = keysOf<Record>();
        // A key the records read may stand once per object: with two values the reply does not
        // say which one the daemon meant, and JSON parsers disagree on which to keep.
        std::uint32_t seen = 0;
        std::size_t next = 0;
        for (const simdjson::dom::key_value_pair entry : object) {
            // The daemon writes the keys of every record in one order: the key after the last one
            // found is tried first.
            const std::size_t wanted = next < keys.size() && keys[next] == entry.key
                ? next
                : std::size_t(std::find(keys.begin(), keys.end(), entry.key) - keys.begin());
            if (wanted == keys.size())
                continue;
            next = wanted + 1;
            const std::uint32_t bit = 1u << wanted;
            if (seen & bit)
                return duplicated(keys[wanted]);
            seen |= bit;
            bool ok = true;
            std::size_t index = 0;
            forEachField(record, [&](std::string_view, auto &field) {
                if (index++ == wanted)
                    ok = read(entry.value, field);
            });
            if (!ok)
                return failedAt(u'.' + QString::fromUtf8(entry.key.data(), qsizetype(entry.key.size())));
        }
        return true;
    }

    QString failureDescription() const
    {
        QString path;
        for (auto it = m_pathReversed.crbegin(); it != m_pathReversed.crend(); ++it)
            path += *it;
        if (path.startsWith(u'.'))
            path.remove(0, 1);
        return u"expected %1 at %2, found %3"_s.arg(m_expected, path, m_found);
    }

private:
    bool mismatch(const char *expected, element found)
    {
        m_expected = QString::fromLatin1(expected);
        m_found = jsonTypeName(found.type());
        return false;
    }

    bool duplicated(std::string_view name)
    {
        m_expected = u"one value"_s;
        m_found = u"two"_s;
        return failedAt(u'.' + QString::fromUtf8(name.data(), qsizetype(name.size())));
    }

    bool failedAt(const QString &component)
    {
        m_pathReversed.push_back(component);
        return false;
    }

    const QByteArray *m_deviceReply;
    bool m_keepTexts = true;
    SharedTextBlocks m_texts;
    QString m_expected;
    QString m_found;
    QStringList m_pathReversed;
};

// A JSON integer may have any number of digits; the parser takes only those that fit in 64 bits.
// Written with an exponent the same literal is read as the nearest double, as any JSON number
// must be: "123456789012345678901" becomes "123456789012345678901e0". Only numbers outside
// strings are touched; none is when every integer fits, and nothing is returned then.
std::optional<QByteArray> widenedIntegers(const QByteArray &line)
{
    static constexpr std::string_view mostNegative = "9223372036854775808"; // digits of -2^63
    static constexpr std::string_view mostPositive = "18446744073709551615"; // 2^64 - 1
    const auto fits = [](std::string_view digits, bool negative) {
        const std::string_view limit = negative ? mostNegative : mostPositive;
        return digits.size() < limit.size() || (digits.size() == limit.size() && digits <= limit);
    };
    QByteArray widened;
    qsizetype copied = 0;
    bool inString = false;
    for (qsizetype i = 0; i < line.size(); ++i) {
        const char c = line[i];
        if (inString) {
            if (c == '\\')
                ++i; // the escaped character, a quote among them
            else if (c == '"')
                inString = false;
            continue;
        }
        if (c == '"') {
            inString = true;
            continue;
        }
        if (c != '-' && !std::isdigit(static_cast<unsigned char>(c)))
            continue;
        qsizetype end = i + (c == '-' ? 1 : 0);
        const qsizetype firstDigit = end;
        while (end < line.size() && std::isdigit(static_cast<unsigned char>(line[end])))
            ++end;
        const bool integer = end == line.size() || (line[end] != '.' && line[end] != 'e' && line[end] != 'E');
        if (integer && !fits(std::string_view(line.constData() + firstDigit, size_t(end - firstDigit)), c == '-')) {
            widened.append(line.constData() + copied, end - copied);
            widened.append("e0");
            copied = end;
        }
        // Skip the rest of the literal (fraction, exponent) so its digits are not read again.
        while (end < line.size() && (std::isdigit(static_cast<unsigned char>(line[end])) || line[end] == '.'
                                     || line[end] == 'e' || line[end] == 'E' || line[end] == '+' || line[end] == '-'))
            ++end;
        i = end - 1;
    }
    if (copied == 0)
        return std::nullopt;
    widened.append(line.constData() + copied, line.size() - copied);
    return widened;
}

// In the app's own words, which do not change with the parser's version.
QString parseFailure(simdjson::error_code error)
{
    switch (error) {
    case simdjson::UTF8_ERROR:
        return u"not valid UTF-8"_s;
    case simdjson::STRING_ERROR:
    case simdjson::UNESCAPED_CHARS:
    case simdjson::UNCLOSED_STRING:
        return u"a malformed string"_s;
    case simdjson::NUMBER_ERROR:
        return u"a malformed number, or one beyond a double's range"_s;
    case simdjson::DEPTH_ERROR:
        return u"nested too deeply"_s;
    case simdjson::CAPACITY:
    case simdjson::MEMALLOC:
        return u"too large to read"_s;
    default:
        return u"not one JSON value"_s;
    }
}

simdjson::dom::parser &threadParser()
{
    // One parser per thread keeps its buffers between replies; in the app only the client's worker
    // decodes, so this is a single parser sized to the largest reply seen.
    thread_local simdjson::dom::parser parser;
    return parser;
}

std::variant<DaemonControlResponse, DecodeFailure> decode(simdjson::dom::parser &parser, const QByteArray &line,
                                                          DeviceRecords devices)
{
    // With enough spare capacity behind the bytes the parser reads in place; otherwise it copies.
    const bool padded = line.capacity() - line.size() >= paddingBytes;
    element root;
    auto error = parser.parse(line.constData(), size_t(line.size()), !padded).get(root);
    // Parsers refuse an integer beyond 64 bits under different errors (a number error, a big-integer
    // error), so any failure is tried again with such integers widened, when there are any.
    if (error != simdjson::SUCCESS) {
        if (const std::optional<QByteArray> widened = widenedIntegers(line))
            error = parser.parse(widened->constData(), size_t(widened->size()), true).get(root);
    }
    if (error != simdjson::SUCCESS)
        return DecodeFailure{parseFailure(error)};
    if (!root.is_object())
        return DecodeFailure{
            u"expected an object at the top level, found %1"_s.arg(jsonTypeName(root.type()))};

    RecordReader reader(devices == DeviceRecords::WhenAsked ? &line : nullptr);
    DaemonControlResponse response;
    if (!reader.readRecord(root, response))
        return DecodeFailure{reader.failureDescription()};
    return response;
}

} // namespace

std::variant<DaemonControlResponse, DecodeFailure> decodeResponse(const QByteArray &line, DeviceRecords devices)
{
    return decode(threadParser(), line, devices);
}

} // namespace DaemonProtocol

ConnectableDeviceList ConnectableDeviceList::ofCheckedReply(const QByteArray &reply)
{
    ConnectableDeviceList list;
    list.m_reply = reply;
    return list;
}

QList<ConnectableDeviceSnapshot> ConnectableDeviceList::devices() const
{
    if (!keepsReply())
        return m_devices;
    // Checked when it came, the reply decodes again. With a parser of its own, freed at once: the
    // caller is the UI thread, which should not keep a parser sized to a large reply.
    simdjson::dom::parser parser;
    const auto decoded = DaemonProtocol::decode(parser, m_reply, DaemonProtocol::DeviceRecords::Now);
    const auto *response = std::get_if<DaemonControlResponse>(&decoded);
    return response && response->status && response->status->connectableDevices
        ? response->status->connectableDevices->devices()
        : QList<ConnectableDeviceSnapshot>();
}

} // namespace Veltrane
