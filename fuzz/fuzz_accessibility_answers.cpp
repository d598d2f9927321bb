// What other programs say on the accessibility bus: state words, offsets, texts, window classes, paths. (The
// D-Bus framing itself is read by the bus library; types are checked before anything is read.)

#include "Vellumline/Platform/Linux/AtSpiAccessibility.h"
#include "Vellumline/Platform/Linux/AtSpiWire.h"

#include <QDBusVariant>
#include <QVariant>
#include <cstdint>
#include <cstdlib>
#include <cstring>

using namespace vellumline;

namespace {

void require(bool condition) {
    if (!condition)
        std::abort();
}

/// Takes numbers and texts from the fuzzer's bytes; zero and empty when they are used up.
class Bytes {
  public:
    Bytes(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}
    std::int32_t number() {
        std::int32_t value = 0;
        const std::size_t length = std::min(size_, sizeof value);
        if (length > 0)
            std::memcpy(&value, data_, length);
        data_ += length;
        size_ -= length;
        return value;
    }
    QString text() {
        const std::size_t length = std::min<std::size_t>(size_, static_cast<std::uint8_t>(number()));
        const QString text = QString::fromUtf8(reinterpret_cast<const char*>(data_), qsizetype(length));
        data_ += length;
        size_ -= length;
        return text;
    }

  private:
    const std::uint8_t* data_;
    std::size_t size_;
};

/// A method return with values of any type, as a program may send them for any question.
QDBusMessage answerOf(const QVariantList& arguments) {
    const QDBusMessage question =
        QDBusMessage::createMethodCall(QStringLiteral("org.example.Any"), QStringLiteral("/any"),
                                       QStringLiteral("org.example.Any"), QStringLiteral("Ask"));
    return question.createReply(arguments);
}

void readEverything(const QDBusMessage& answer) {
    require(atspi::references(answer, 3).value_or(QList<atspi::Reference>()).size() <= 3);
    require(atspi::focusedItems(answer, 3).value_or(QList<atspi::Reference>()).size() <= 3);
    require(atspi::names(answer, 3).value_or(QStringList()).size() <= 3);
    atspi::reference(answer);
    atspi::referenceProperty(answer);
    atspi::states(answer);
    atspi::unsignedNumber(answer);
    atspi::number(answer);
    atspi::numberProperty(answer);
    atspi::text(answer);
    atspi::textProperty(answer);
    atspi::span(answer);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Bytes bytes(data, size);
    const int start = bytes.number();
    const int end = bytes.number();
    const QString text = bytes.text();
    const QString name = bytes.text();

    if (const auto span = atspi::orderedSpan(start, end)) {
        require(span->start >= 0 && span->start <= span->end);
        if (atspi::isWholeText(*span, text))
            require(text.size() >= qint64(span->end) - span->start);
    }
    QList<uint> words;
    for (int i = 0; i < (start & 3); ++i)
        words.append(static_cast<uint>(bytes.number()));
    const auto states = atspi::joinedStates(words);
    require(states.has_value() == !words.isEmpty());
    if (states)
        require(states->contains(atspi::State::focused) == ((words.first() >> 12U & 1U) != 0));
    atspi::isMenuRole(static_cast<uint>(end));
    atspi::Reference{name, text}.isNull();
    AtSpiAccessibility::isTerminalClass({name, text});

    const QVariant values[] = {start,
                               static_cast<uint>(end),
                               text,
                               QStringList{name, text, name, text},
                               true,
                               2.5,
                               QByteArray(text.toUtf8()),
                               QVariant::fromValue(QDBusVariant(text)),
                               QVariant::fromValue(QDBusVariant(end)),
                               QVariant::fromValue(QDBusVariant(QVariant::fromValue(QDBusVariant(end))))};
    QVariantList arguments;
    for (int i = 0; i < (end & 3); ++i)
        arguments.append(values[static_cast<uint>(bytes.number()) % std::size(values)]);
    readEverything(answerOf(arguments));
    readEverything(QDBusMessage::createError(name, text));
    return 0;
}
