#pragma once

#include "VellumlineService/Correction/CorrectionEngine.h"

#include <memory>

namespace vellumline {

class Speller;

/// Hunspell spelling and a list of small grammar rules. Precise rather than thorough: what a rule is not sure
/// of stays.
class RulesEngine : public CorrectionEngine {
  public:
    /// Uses the Hunspell dictionaries en_US and, where it is installed, en_GB of the system.
    RulesEngine();
    ~RulesEngine() override;

    CorrectionResult correct(QString text) override;

  private:
    std::unique_ptr<Speller> speller_;
};

} // namespace vellumline
