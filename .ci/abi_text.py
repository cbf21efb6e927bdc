"""Writes the binary interface of a library as lines to read and compare: abi_text.py <abidw's XML>

Sizes and offsets are in bytes. Private fields count, since hosts reserve the room for them. The standard library's
types don't, nor do inline functions: every user has a copy.
"""

import re
import subprocess
import sys
import xml.etree.ElementTree as xml

NAMESPACE = "TarnoMirelo"


def readable(text):
    """Without the spellings that the standard library has for a text."""
    text = re.sub(r"std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> ?>", "std::string", text)
    return text.replace("std::string >", "std::string>")


def demangled(names):
    output = subprocess.run(["c++filt"], input="\n".join(names), text=True, capture_output=True, check=True).stdout
    return [readable(name) for name in output.split("\n")]


def elements(root):
    """Each element of the tree with the qualified name of what encloses it."""
    pending = [(root, "")]
    while pending:
        element, scope = pending.pop()
        yield element, scope
        inner = scope
        if element.tag in ("namespace-decl", "class-decl"):
            inner = f"{scope}{element.get('name')}::"
        pending.extend((child, inner) for child in element)


def types_by_id(root):
    types = {}
    for element, scope in elements(root):
        if element.get("id") is not None:
            types.setdefault(element.get("id"), (element, scope))
    return types


def type_name(identity, types):
    element, scope = types[identity]
    target = element.get("type-id")
    if element.tag == "pointer-type-def":
        return type_name(target, types) + "*"
    if element.tag == "reference-type-def":
        return type_name(target, types) + ("&" if element.get("kind") == "lvalue" else "&&")
    if element.tag == "qualified-type-def":
        return ("const " if element.get("const") == "yes" else "") + type_name(target, types)
    return readable(scope + element.get("name", "function"))


def offset(element):
    return int(element.get("layout-offset-in-bits", "0")) // 8


def class_lines(element, scope, types):
    name = scope + element.get("name")
    yield name, (0, 0), f"{int(element.get('size-in-bits', '0')) // 8} bytes"
    for part in element:
        if part.tag == "base-class":
            yield name, (1, offset(part)), f"base at {offset(part)}: {type_name(part.get('type-id'), types)}"
        elif part.tag == "data-member" and part.get("static") != "yes":
            field = part.find("var-decl")
            type_of_field = type_name(field.get("type-id"), types)
            yield name, (2, offset(part)), f"field at {offset(part)}: {field.get('name')}, {type_of_field}"
        elif part.tag == "member-function" and part.get("vtable-offset") is not None:
            function = part.find("function-decl")
            arguments = ", ".join(type_name(p.get("type-id"), types) for p in function.findall("parameter")
                                  if p.get("is-artificial") != "yes")
            const = " const" if part.get("const") == "yes" else ""
            slot = int(part.get("vtable-offset"))
            where = "virtual" if slot < 0 else f"slot {slot}"
            yield name, (3, slot), f"{where}: {function.get('name')}({arguments}){const}"


def enum_lines(element, scope):
    name = scope + element.get("name")
    for part in element.findall("enumerator"):
        yield name, (0, int(part.get("value"))), f"{part.get('name')} = {part.get('value')}"


def is_offered(symbol, name):
    """Explicit instantiations of templates are weak symbols, too, as inline functions and tables are."""
    tables = ("vtable", "typeinfo")
    return symbol.get("binding") == "global-binding" or name.startswith(tables) or re.match(r"TarnoMirelo::\w+<", name)


def main():
    root = xml.parse(sys.argv[1]).getroot()
    types = types_by_id(root)
    layout = set()
    results = {}
    for element, scope in elements(root):
        named = scope.startswith(NAMESPACE + "::") and not element.get("is-anonymous")
        if named and element.tag == "class-decl" and element.get("size-in-bits"):
            layout.update(class_lines(element, scope, types))
        if named and element.tag == "enum-decl":
            layout.update(enum_lines(element, scope))
        if element.tag == "function-decl" and element.get("elf-symbol-id"):
            result = type_name(element.find("return").get("type-id"), types)
            if result != "void":  # which some of several entries for one function have in its place
                results[element.get("elf-symbol-id")] = f" -> {result}"
    symbols = list(root.iter("elf-symbol"))
    names = demangled([symbol.get("name") for symbol in symbols])

    last = None
    for name, _, line in sorted(layout):
        if name != last:
            print(f"{name}")
        last = name
        print(f"  {line}")
    print("symbols")
    for line in sorted({name + results.get(symbol.get("name"), "") for symbol, name in zip(symbols, names)
                        if is_offered(symbol, name)}):
        print(f"  {line}")


main()
