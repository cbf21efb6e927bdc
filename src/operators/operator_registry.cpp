#include <TarnoMirelo/operators.h>

namespace TarnoMirelo::CustomOperators {

Operator::Operator() = default;
Operator::~Operator() = default;

OperatorRegistry::OperatorRegistry() = default;

bool OperatorRegistry::addOperatorToRegistry(std::string name, OperatorFactory factory) {
    if (readOnly_ || factory == nullptr) return false;
    return operators_.try_emplace(std::move(name), std::move(factory)).second;
}

void OperatorRegistry::addCustomOperatorDLL(const Filepath& path) {
    if (!readOnly_) libraries_.push_back(path);
}

std::unique_ptr<Operator> OperatorRegistry::createOperator(const std::string& name) const {
    const auto found = readOnly_ ? operators_.find(name) : operators_.end();
    return found == operators_.end() ? nullptr : found->second();
}

void OperatorRegistry::enumerateThroughRegisteredOperators(
    const std::function<void(const std::string&, std::unique_ptr<Operator>)>& callback) const {
    if (!readOnly_) return;
    for (const auto& [name, factory] : operators_) callback(name, factory());
}

std::vector<Filepath> OperatorRegistry::getCustomOperatorDLLList() const {
    return readOnly_ ? libraries_ : std::vector<Filepath>();
}

OperatorPlacement OperatorRegistry::getOpPlacement() const { return {firstPlacement_, secondPlacement_}; }

void OperatorRegistry::updateOpPlacement(OperatorPlacement placement) {
    firstPlacement_ = std::move(placement.first);
    secondPlacement_ = std::move(placement.second);
}

bool OperatorRegistry::isRegistryReadOnly() const { return readOnly_; }

void OperatorRegistry::markRegistryAsReadOnly() { readOnly_ = true; }

void OperatorRegistry::clear() {
    std::unordered_map<std::string, OperatorFactory> operators;
    operators_.swap(operators);  // destroyed last: what a factory holds may use the registry in its destructor
    libraries_.clear();
    readOnly_ = false;
}

OperatorRegistry& getMutableOperatorRegistry() {
    static OperatorRegistry registry;
    return registry;
}

const OperatorRegistry& getOperatorRegistry() { return getMutableOperatorRegistry(); }

bool registerCustomOperator(std::string name, OperatorFactory factory) {
    return getMutableOperatorRegistry().addOperatorToRegistry(std::move(name), std::move(factory));
}

void registerCustomOperatorPluginDLL(Filepath path) { getMutableOperatorRegistry().addCustomOperatorDLL(path); }

void finalizeOperatorRegistry() { getMutableOperatorRegistry().markRegistryAsReadOnly(); }

}  // namespace TarnoMirelo::CustomOperators
