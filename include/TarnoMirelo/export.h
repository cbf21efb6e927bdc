#pragma once

/// @file
/// How a symbol leaves the library it is built into, and how it enters the programs that use it.
///
/// `MIRELO_API` marks what sdk-core offers; everything else stays hidden inside the library. A backend library defines
/// a macro of its own from the two lower ones, in the same way.

#if defined(_WIN32)
#define MIRELO_EXPORT_SYMBOL __declspec(dllexport)
#define MIRELO_IMPORT_SYMBOL __declspec(dllimport)
#else
#define MIRELO_EXPORT_SYMBOL __attribute__((visibility("default")))
#define MIRELO_IMPORT_SYMBOL __attribute__((visibility("default")))
#endif

// How a library marks an explicit instantiation of a template: where it is declared, and where it is defined. One
// family of compilers takes an export at the definition only, the other one at the first declaration only.
#if defined(_MSC_VER)
#define MIRELO_EXPORT_DECLARED_TEMPLATE
#define MIRELO_EXPORT_DEFINED_TEMPLATE MIRELO_EXPORT_SYMBOL
#else
#define MIRELO_EXPORT_DECLARED_TEMPLATE MIRELO_EXPORT_SYMBOL
#define MIRELO_EXPORT_DEFINED_TEMPLATE
#endif

#if defined(SDK_CORE_BUILDING)  // set while sdk-core itself is compiled, never by its users
#define MIRELO_API MIRELO_EXPORT_SYMBOL
#define MIRELO_API_TEMPLATE MIRELO_EXPORT_DECLARED_TEMPLATE
#else
#define MIRELO_API MIRELO_IMPORT_SYMBOL
#define MIRELO_API_TEMPLATE MIRELO_IMPORT_SYMBOL
#endif
