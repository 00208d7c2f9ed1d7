#include "peers.h"

#include <fl/Headers.h>

#include <cmath>
#include <memory>

namespace
{
class FuzzyLite : public Peer
{
public:
    FuzzyLite() : Peer("fuzzylite") {}

    void addRules(std::vector<Tool>& tools, const std::vector<Trapezoid>& trapezoids, long features, double threshold,
                  const std::vector<std::vector<double>>& inputs) override
    {
        const long rules = static_cast<long>(trapezoids.size()) / features;
        const auto engine = std::make_shared<fl::Engine>();
        for (long f = 0; f < features; ++f)
        {
            auto* const variable = new fl::InputVariable("x" + std::to_string(f), -10.0, 10.0);
            for (long r = 0; r < rules; ++r)
            {
                const double* const c = trapezoids[static_cast<std::size_t>(r * features + f)].corners;
                variable->addTerm(new fl::Trapezoid("t" + std::to_string(r), c[0], c[1], c[2], c[3]));
            }
            engine->addInputVariable(variable);
        }
        auto* const label = new fl::OutputVariable("label", 0.0, static_cast<double>(rules));
        label->setDefuzzifier(new fl::WeightedAverage("TakagiSugeno"));
        auto* const block = new fl::RuleBlock;
        block->setConjunction(new fl::AlgebraicProduct);
        block->setActivation(new fl::First(1, std::pow(threshold, static_cast<double>(features))));
        for (long r = 0; r < rules; ++r)
            label->addTerm(new fl::Constant("c" + std::to_string(r), static_cast<double>(r)));
        engine->addOutputVariable(label);
        for (long r = 0; r < rules; ++r)
        {
            std::string text = "if ";
            for (long f = 0; f < features; ++f)
                text += (f > 0 ? "and x" : "x") + std::to_string(f) + " is t" + std::to_string(r) + " ";
            block->addRule(fl::Rule::parse(text + "then label is c" + std::to_string(r), engine.get()));
        }
        engine->addRuleBlock(block);
        tools.push_back({name(), Role::Peer,
                         [engine, label, &inputs](long first, long count)
                         {
                             double sum = 0.0;
                             for (long i = first; i < first + count; ++i)
                             {
                                 const std::vector<double>& input = inputs[static_cast<std::size_t>(i) % inputs.size()];
                                 for (std::size_t f = 0; f < input.size(); ++f)
                                     engine->inputVariables()[f]->setValue(input[f]);
                                 engine->process();
                                 sum += label->getValue();
                             }
                             keep(sum);
                         }});
    }
} fuzzyLite;
} // namespace
