#include "VellumlineService/Correction/Engines.h"

#include "VellumlineService/Correction/ChatEngine.h"
#include "VellumlineService/Correction/LanguageToolEngine.h"
#include "VellumlineService/Correction/RulesEngine.h"

#include <QThread>
#include <QUrl>

namespace vellumline {

namespace {

class UnavailableEngine : public CorrectionEngine {
  public:
    CorrectionResult correct(QString) override { return {CorrectionResult::Status::unavailable, {}}; }
};

class FailingEngine : public CorrectionEngine {
  public:
    CorrectionResult correct(QString) override { return {CorrectionResult::Status::failed, {}}; }
};

/// Takes longer than the service lets an engine take.
class SlowEngine : public CorrectionEngine {
  public:
    CorrectionResult correct(QString text) override {
        QThread::sleep(20);
        return {CorrectionResult::Status::corrected, text};
    }
};

const QString languageToolKind = QStringLiteral("languagetool");
const QString chatKind = QStringLiteral("openai");

/// "chain:KIND:URL" or "KIND:URL".
struct ExternalName {
    bool chain = false;
    QString kind;
    QByteArray url;
};

ExternalName parseExternalName(const QString& name) {
    const QString prefix = QStringLiteral("chain:");
    ExternalName parsed;
    parsed.chain = name.startsWith(prefix);
    const QString rest = parsed.chain ? name.mid(prefix.size()) : name;
    parsed.kind = rest.section(u':', 0, 0);
    parsed.url = QUrl(rest.section(u':', 1), QUrl::StrictMode).toEncoded();
    return parsed;
}

} // namespace

QStringList correctionEngineNames() {
    return {QStringLiteral("rules"), QStringLiteral("test-unavailable"), QStringLiteral("test-failing"),
            QStringLiteral("test-slow")};
}

QStringList correctionRuleNames() {
    return RulesEngine::ruleNames();
}

std::unique_ptr<CorrectionEngine> makeCorrectionEngine(const QString& name, const QStringList& disabledRules,
                                                       const QString& personalDictionary) {
    if (name == QStringLiteral("rules")) {
        return std::make_unique<RulesEngine>(RulesEngineSettings{disabledRules, {}, personalDictionary});
    }
    if (name == QStringLiteral("test-unavailable")) {
        return std::make_unique<UnavailableEngine>();
    }
    if (name == QStringLiteral("test-failing")) {
        return std::make_unique<FailingEngine>();
    }
    if (name == QStringLiteral("test-slow")) {
        return std::make_unique<SlowEngine>();
    }
    return nullptr;
}

QByteArray endpointAddress(const QByteArray& url, const QByteArray& endpoint) {
    QByteArray address = url;
    while (address.endsWith('/')) {
        address.chop(1);
    }
    // "…", "…/v1", "…/v1/chat" and "…/v1/chat/completions" all mean the same.
    const QByteArray path = QUrl::fromEncoded(address).path(QUrl::FullyEncoded).toLatin1();
    if (path.endsWith(endpoint.mid(endpoint.indexOf('/', 1)))) {
        return address; // Some have it elsewhere: "…/v1beta/openai/chat/completions".
    }
    for (qsizetype length = endpoint.size(); length > 0; length = endpoint.lastIndexOf('/', length - 1)) {
        if (path.endsWith(endpoint.left(length))) {
            return address + endpoint.mid(length);
        }
    }
    return address + endpoint;
}

QStringList correctionEngineForms() {
    return correctionEngineNames() +
           QStringList{QStringLiteral("languagetool:URL"), QStringLiteral("openai:URL"),
                       QStringLiteral("chain:languagetool:URL"), QStringLiteral("chain:openai:URL")};
}

std::optional<QString> correctionEngineProblem(const EngineSettings& settings) {
    if (correctionEngineNames().contains(settings.name)) {
        return {};
    }
    const ExternalName name = parseExternalName(settings.name);
    if (name.kind != languageToolKind && name.kind != chatKind) {
        return QStringLiteral("is one of: %1").arg(correctionEngineForms().join(QStringLiteral(", ")));
    }
    return httpAddressProblem(name.url, settings.http.plainHttp);
}

std::unique_ptr<CorrectionEngine> makeCorrectionEngine(const EngineSettings& settings) {
    if (correctionEngineProblem(settings)) {
        return nullptr;
    }
    if (auto engine =
            makeCorrectionEngine(settings.name, settings.disabledRules, settings.personalDictionary)) {
        return engine;
    }
    const ExternalName name = parseExternalName(settings.name);
    HttpClientSettings http = settings.http;
    std::unique_ptr<CorrectionEngine> engine;
    if (name.kind == languageToolKind) {
        http.url = endpointAddress(name.url, "/v2/check");
        engine = std::make_unique<LanguageToolEngine>(http, settings.language);
    } else {
        http.url = endpointAddress(name.url, "/v1/chat/completions");
        engine = std::make_unique<ChatEngine>(http, settings.model, settings.key);
    }
    ExternalEngineSettings external = settings.external;
    external.when = name.chain ? external.when : AskWhen::first;
    std::unique_ptr<CorrectionEngine> builtIn;
    if (name.chain || external.fallback == Fallback::builtIn) {
        builtIn = std::make_unique<RulesEngine>(
            RulesEngineSettings{settings.disabledRules, {}, settings.personalDictionary});
    }
    return std::make_unique<ExternalEngine>(std::move(engine), std::move(builtIn), external);
}

} // namespace vellumline
