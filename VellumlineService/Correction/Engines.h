#pragma once

#include "VellumlineService/Correction/CorrectionEngine.h"
#include "VellumlineService/Correction/ExternalEngine.h"
#include "VellumlineService/Correction/HttpClient.h"

#include <QStringList>
#include <memory>
#include <optional>

namespace vellumline {

/// The names that `makeCorrectionEngine` knows.
QStringList correctionEngineNames();
/// An engine of this program by its name; null for an unknown one. "rules" corrects; the "test-" engines do
/// what their name says, so that a client's handling of each answer can be tried. `disabledRules` are rules
/// of "rules" that shall do nothing; `personalDictionary` is as in RulesEngineSettings.
std::unique_ptr<CorrectionEngine> makeCorrectionEngine(const QString& name,
                                                       const QStringList& disabledRules = {},
                                                       const QString& personalDictionary = {});
/// The names that `disabledRules` may hold.
QStringList correctionRuleNames();

struct EngineSettings {
    /// One of `correctionEngineNames`, "languagetool:URL", "openai:URL", or "chain:" and one of these two.
    QString name = QStringLiteral("rules");
    QStringList disabledRules = {};  ///< Of the built-in engine.
    QString personalDictionary = {}; ///< As in RulesEngineSettings.
    QString model = {};
    QByteArray key = {};
    QByteArray language = "en-US";
    HttpClientSettings http = {}; ///< All but the address, which is in the name.
    /// How a chain passes texts on; an engine that stands alone is always asked first.
    ExternalEngineSettings external = {};
};

/// How `EngineSettings::name` may look, for a help text.
QStringList correctionEngineForms();
/// What is wrong with the name, after "engine"; nothing when there is such an engine.
std::optional<QString> correctionEngineProblem(const EngineSettings& settings);
/// Null when there is a problem.
std::unique_ptr<CorrectionEngine> makeCorrectionEngine(const EngineSettings& settings);

/// The address of an API's endpoint: what is written, completed by as much of `endpoint` ("/v2/check") as it
/// lacks.
QByteArray endpointAddress(const QByteArray& url, const QByteArray& endpoint);

} // namespace vellumline
