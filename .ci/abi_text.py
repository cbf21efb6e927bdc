"""Tells the binary interface of a library in lines that can be read and compared: abi_text.py <abidw's XML>

Sizes and offsets are in bytes. Private fields count, since hosts reserve the room for them; types of the standard
library don't, nor functions that every user has a copy of.
"""

import subprocess
import sys
import xml.etree.ElementTree as xml

NAMESPACE = "TarnoMirelo"


def demangled(names):
    return subprocess.run(["c++filt"], input="\n".join(names), text=True, capture_output=True, check=True).stdout.split("\n")


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
    return scope + element.get("name", "function")


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
            yield name, (2, offset(part)), f"field at {offset(part)}: {field.get('name')}, {type_name(field.get('type-id'), types)}"
        elif part.tag == "member-function" and part.get("vtable-offset") is not None:
            function = part.find("function-decl")
            arguments = ", ".join(type_name(p.get("type-id"), types) for p in function.findall("parameter")
                                  if p.get("is-artificial") != "yes")
            const = " const" if part.get("const") == "yes" else ""
            slot = int(part.get("vtable-offset"))
            where = "virtual" if slot < 0 else f"slot {slot}"
            yield name, (3, slot), f"{where}: {function.get('name')}({arguments}){const}"


def enum_lines(element, scope, types):
    name = scope + element.get("name")
    for part in element.findall("enumerator"):
        yield name, (0, int(part.get("value"))), f"{part.get('name')} = {part.get('value')}"


def main():
    root = xml.parse(sys.argv[1]).getroot()
    types = types_by_id(root)
    layout = set()
    results = {}
    for element, scope in elements(root):
        ours = scope.startswith(NAMESPACE + "::")
        if ours and element.tag == "class-decl" and element.get("size-in-bits") and not element.get("is-anonymous"):
            layout.update(class_lines(element, scope, types))
        if ours and element.tag == "enum-decl" and not element.get("is-anonymous"):
            layout.update(enum_lines(element, scope, types))
        if element.tag == "function-decl" and element.get("elf-symbol-id"):
            results[element.get("elf-symbol-id")] = type_name(element.find("return").get("type-id"), types)
    symbols = [symbol.get("name") for symbol in root.iter("elf-symbol") if symbol.get("binding") == "global-binding"]

    last = None
    for name, _, line in sorted(layout):
        if name != last:
            print(f"\n{name}")
        last = name
        print(f"  {line}")
    print("\nsymbols")
    told = {name: result for name, result in zip(results, results.values())}
    lines = {f"  {readable}" + (f" -> {told[symbol]}" if symbol in told else "")
             for symbol, readable in zip(symbols, demangled(symbols))}
    print("\n".join(sorted(lines)))


main()
