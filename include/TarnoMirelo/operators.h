#pragma once

/// @file
/// The registry of operators that a host supplies because an inference engine lacks them.

#include <TarnoMirelo/export.h>
#include <TarnoMirelo/files.h>

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace TarnoMirelo::CustomOperators {

/// The base of operators. What an operator can do is between the host and the backend, which offers a class of its own
/// to derive from.
class MIRELO_API Operator {
 public:
    Operator();
    /// @{

    /// Copies nothing: an operator's state is in the class that the backend offers and those that derive from it.
    Operator(const Operator&) = default;
    Operator& operator=(const Operator&) = default;
    /// @}

    virtual ~Operator();
};

/// Makes an operator, each call a new one. An empty callable is no factory.
using OperatorFactory = std::function<std::unique_ptr<Operator>()>;

/// The names of operators to be placed in one way, and those to be placed in another; backends give them their meaning.
using OperatorPlacement = std::pair<std::set<std::string>, std::set<std::string>>;

/// Operators by name, and libraries of operators. A registry is open while the host fills it; once it is read-only,
/// backends read it.
///
/// An ordinary value: a copy has everything, the read-only state included. Calls that change a registry must not
/// overlap with any other on it; the others may run on several threads at once, and so may the factories then.
class MIRELO_API OperatorRegistry {
 public:
    OperatorRegistry();

    /// Registers a factory under a name. The first one of a name stays.
    /// @return false, with nothing changed, when the registry is read-only, the factory empty or the name taken
    bool addOperatorToRegistry(std::string name, OperatorFactory factory);
    /// Adds the path of a library, which is neither looked at nor loaded. A read-only registry stays as it is.
    void addCustomOperatorDLL(const Filepath& path);

    /// Makes an operator by the name of its factory.
    /// @return a new operator, the caller's; null when the name is unknown or the registry is open
    /// What the factory raises passes through.
    std::unique_ptr<Operator> createOperator(const std::string& name) const;
    /// Calls back with the name and a new operator of every entry, in no certain order; not at all while the registry
    /// is open. Neither the callback nor a factory may change the registry meanwhile. What they raise passes through;
    /// an empty callback raises `std::bad_function_call`.
    void enumerateThroughRegisteredOperators(
        const std::function<void(const std::string&, std::unique_ptr<Operator>)>& callback) const;
    /// The libraries in the order in which they were added; none while the registry is open.
    std::vector<Filepath> getCustomOperatorDLLList() const;

    /// Both sets, open or read-only.
    OperatorPlacement getOpPlacement() const;
    /// Replaces both sets, open or read-only.
    void updateOpPlacement(OperatorPlacement placement);

    /// Whether the registry was marked read-only and not cleared since. Only then operators are created and libraries
    /// listed.
    bool isRegistryReadOnly() const;
    /// Ends the filling: from now on operators can be created, and none added. `clear` opens the registry again.
    void markRegistryAsReadOnly();
    /// Removes operators and libraries and opens the registry again; the placement stays.
    void clear();

 private:
    std::unordered_map<std::string, OperatorFactory> operators_;
    std::set<std::string> firstPlacement_;
    std::set<std::string> secondPlacement_;
    bool readOnly_ = false;
    std::vector<Filepath> libraries_;
};

/// The process-wide registry, created empty by the first call and destroyed at process exit. A static object may use it
/// in its destructor if it was already there when the object's constructor ended: call this in the constructor. What a
/// factory holds must not use it while the registry is being destroyed.
/// Clear the registry before you unload a library that holds the code of a factory.
MIRELO_API const OperatorRegistry& getOperatorRegistry();
/// The same, to be changed.
MIRELO_API OperatorRegistry& getMutableOperatorRegistry();

/// `addOperatorToRegistry` on the process-wide registry.
MIRELO_API bool registerCustomOperator(std::string name, OperatorFactory factory);
/// `addCustomOperatorDLL` on the process-wide registry.
MIRELO_API void registerCustomOperatorPluginDLL(Filepath path);
/// `markRegistryAsReadOnly` on the process-wide registry: what hosts call before they load models.
MIRELO_API void finalizeOperatorRegistry();

}  // namespace TarnoMirelo::CustomOperators
