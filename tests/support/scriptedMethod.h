#ifndef TESTS_SUPPORT_SCRIPTEDMETHOD_H
#define TESTS_SUPPORT_SCRIPTEDMETHOD_H

#include "clss/clastool/clastool/tk_Classifier.h"

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

/// What the steps of a scripted method did, and what they are to do. Shared by parameters, classifiers and copies.
struct Script
{
    /// The steps in the order of their calls, each with what the test can tell of its arguments.
    std::vector<std::string> log;

    /// Called by the step of that name after it was logged: may throw.
    std::map<std::string, std::function<void()>> actions;

    /// Names for objects whose addresses appear in the log.
    std::map<const void*, std::string> names;

    void step(const std::string& name, const std::string& arguments = "")
    {
        log.push_back(arguments.empty() ? name : name + " " + arguments);
        const auto action = actions.find(name);
        if (action != actions.end())
            action->second();
    }

    std::string nameOf(const void* object) const
    {
        if (!object)
            return "null";
        const auto name = names.find(object);
        return name == names.end() ? "?" : name->second;
    }

    std::vector<std::string> takeLog() { return std::exchange(log, {}); }
};

/// Parameters of a method that does nothing but keep its script.
class ScriptedParams : public tkClassifierTrainParams
{
public:
    explicit ScriptedParams(std::shared_ptr<Script> script = std::make_shared<Script>(), long value = 0,
                            std::string technique = "scripted")
        : script(std::move(script)),
          value(value),
          technique(std::move(technique))
    {
    }

    tkPtrHandle<tkClassifierTrainParams> clone() const override
    {
        script->step("clone");
        return tkPtrHandle<tkClassifierTrainParams>(new ScriptedParams(*this));
    }

    std::shared_ptr<Script> script;
    long value;
    std::string technique;

protected:
    bool isEqual_(const tkClassifierTrainParams& other) const override
    {
        script->step("isEqual_");
        const auto* const scripted = dynamic_cast<const ScriptedParams*>(&other);
        return tkClassifierTrainParams::isEqual_(other) && scripted && value == scripted->value;
    }

    bool isSameTechnique_(const tkClassifierTrainParams& other) const override
    {
        script->step("isSameTechnique_");
        const auto* const scripted = dynamic_cast<const ScriptedParams*>(&other);
        return scripted && technique == scripted->technique;
    }

    tk_Classifier* newClassifier_() const override;

private:
    static tkPersistent* make() { return new ScriptedParams; }
    static const Registration registration_;
};

/// A method whose steps log themselves. It is trained from the moment that train_() begins.
class ScriptedClassifier : public tk_Classifier
{
public:
    explicit ScriptedClassifier(std::shared_ptr<Script> script = std::make_shared<Script>()) : script(std::move(script))
    {
    }

    tkPtrHandle<tk_Classifier> clone() const override
    {
        script->step("classifier clone");
        return tkPtrHandle<tk_Classifier>(new ScriptedClassifier(*this));
    }

    std::shared_ptr<Script> script;
    bool trained = false;
    bool trainStartTrains = false;

protected:
    void train_(const tkClassifierDataProvider& data, const tkClassifierTrainParams& params) override
    {
        trained = true;
        script->step("train_", script->nameOf(&data) + " " + script->nameOf(&params));
    }
    void retrain_(const tkClassifierTrainParams& params) override { script->step("retrain_", script->nameOf(&params)); }
    void trainStart_(const tkClassifierTrainParams& params) override
    {
        trained = trainStartTrains;
        script->step("trainStart_", script->nameOf(&params));
    }
    void trainIncremental_(const tkFeaturePattern& pattern, long label) override
    {
        script->step("trainIncremental_", script->nameOf(&pattern) + " " + std::to_string(label));
    }
    void untrain_() override
    {
        script->step("untrain_");
        trained = false;
    }
    bool isTrained_() const override { return trained; }
    void checkRunnable_() const override { script->step("checkRunnable_"); }
    void run_(const tkFeaturePattern& pattern, tkClassifierResult& result) const override
    {
        script->step("run_", script->nameOf(&pattern) + " " + script->nameOf(&result));
        result = tkClassifierResult({{0, 1.0, 1.0, 0.0}}, 7.0);
    }

private:
    std::string recording_(const tkDiagObject* diag, unsigned long flags) const
    {
        return script->nameOf(diag) + " " + std::to_string(flags);
    }
    void recordTrainInputs_(tkDiagObject* diag, unsigned long flags) const override
    {
        script->step("recordTrainInputs_", recording_(diag, flags));
    }
    void recordTrainDetails_(tkDiagObject* diag, unsigned long flags) const override
    {
        script->step("recordTrainDetails_", recording_(diag, flags));
    }
    void recordTrainResults_(tkDiagObject* diag, unsigned long flags) const override
    {
        script->step("recordTrainResults_", recording_(diag, flags));
    }
    void recordRunInputs_(tkDiagObject* diag, unsigned long flags, const tkFeaturePattern& pattern) const override
    {
        script->step("recordRunInputs_", recording_(diag, flags) + " " + script->nameOf(&pattern));
    }
    void recordRunDetails_(tkDiagObject* diag, unsigned long flags) const override
    {
        script->step("recordRunDetails_", recording_(diag, flags));
    }
    void recordRunResults_(tkDiagObject* diag, unsigned long flags, const tkFeaturePattern& pattern,
                           const tkClassifierResult& result) const override
    {
        // The hook sees the result that run_() has written.
        script->step("recordRunResults_", recording_(diag, flags) + " " + script->nameOf(&pattern) + " " +
                                              script->nameOf(&result) + " " +
                                              std::to_string(result.categoryResults().size()));
    }

    static tkPersistent* make() { return new ScriptedClassifier; }
    static const Registration registration_;
};

inline const tkPersistent::Registration ScriptedParams::registration_(typeid(ScriptedParams), &ScriptedParams::make);
inline const tkPersistent::Registration ScriptedClassifier::registration_(typeid(ScriptedClassifier),
                                                                          &ScriptedClassifier::make);

inline tk_Classifier* ScriptedParams::newClassifier_() const
{
    script->step("newClassifier_");
    return new ScriptedClassifier(script);
}

/// Sends recordings elsewhere and adds 100 to the flags.
class RedirectingDiag : public tkDiagObject
{
public:
    explicit RedirectingDiag(tkDiagObject* destination) : destination_(destination) {}

protected:
    tkDiagObject* recordingDestination_(unsigned long& flags) override
    {
        flags += 100;
        return destination_;
    }

private:
    tkDiagObject* destination_;
};

#endif
