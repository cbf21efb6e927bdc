#pragma once

/// @file
/// How a symbol leaves the library it is built into, and how it enters the programs that use it.
///
/// `MIRELO_API` marks what sdk-core offers; everything else stays hidden inside the library. A backend library defines
/// a macro of its own from the two lower ones, in the same way.

/// @def MIRELO_EXPORT_SYMBOL
/// Marks a symbol while the library that defines it is compiled: other programs see it.

/// @def MIRELO_IMPORT_SYMBOL
/// Marks the same symbol in the programs that use the library.

#if defined(_WIN32)
#define MIRELO_EXPORT_SYMBOL __declspec(dllexport)
#define MIRELO_IMPORT_SYMBOL __declspec(dllimport)
#else
#define MIRELO_EXPORT_SYMBOL __attribute__((visibility("default")))
#define MIRELO_IMPORT_SYMBOL __attribute__((visibility("default")))
#endif

/// @def MIRELO_EXPORT_DECLARED_TEMPLATE
/// Marks the declaration of an explicit instantiation of a template, while the library that has it is compiled.
///
/// A library marks both the declaration and the definition: one family of compilers takes an export at the definition
/// only, the other one at the first declaration only.

/// @def MIRELO_EXPORT_DEFINED_TEMPLATE
/// Marks the definition of an explicit instantiation of a template, see `MIRELO_EXPORT_DECLARED_TEMPLATE`.

#if defined(_MSC_VER)
#define MIRELO_EXPORT_DECLARED_TEMPLATE
#define MIRELO_EXPORT_DEFINED_TEMPLATE MIRELO_EXPORT_SYMBOL
#else
#define MIRELO_EXPORT_DECLARED_TEMPLATE MIRELO_EXPORT_SYMBOL
#define MIRELO_EXPORT_DEFINED_TEMPLATE
#endif

/// @def MIRELO_API
/// Marks what sdk-core exports: functions, and classes as a whole or member by member.

/// @def MIRELO_API_TEMPLATE
/// Marks the instantiations of templates that sdk-core exports.

#if defined(SDK_CORE_BUILDING)  // set while sdk-core itself is compiled, never by its users
#define MIRELO_API MIRELO_EXPORT_SYMBOL
#define MIRELO_API_TEMPLATE MIRELO_EXPORT_DECLARED_TEMPLATE
#else
#define MIRELO_API MIRELO_IMPORT_SYMBOL
#define MIRELO_API_TEMPLATE MIRELO_IMPORT_SYMBOL
#endif
