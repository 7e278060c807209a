#!/usr/bin/env python3
"""Compares what a shared library exports with what its public headers declare.

usage: check_exports.py LIBRARY INCLUDE_DIR

The headers are parsed by clang, the library is read by nm. A declaration marked for export
that the library lacks is a fault, and so is an export that no header declares, and a
declaration without a definition that is not marked for export.
"""
import json
import pathlib
import subprocess
import sys

FUNCTIONS = {"FunctionDecl", "CXXMethodDecl", "CXXConstructorDecl", "CXXDestructorDecl",
             "CXXConversionDecl"}
RECORDS = {"CXXRecordDecl", "ClassTemplateSpecializationDecl"}
# What the compiler makes for a class beside its members.
CLASS_DATA = ("vtable for ", "typeinfo for ", "typeinfo name for ", "VTT for ")


class Declarations:
    def __init__(self):
        self.required = {}   # mangled name: words for the report
        self.allowed = set()  # inline or implicit members, which may be exported or not
        self.classes = set()  # mangled stems of exported classes
        self.hidden = {}      # declared without a body and not for export


def run(command, text=None):
    done = subprocess.run(command, input=text, capture_output=True, text=True)
    if done.returncode != 0:
        sys.exit(f"{command[0]} failed:\n{done.stderr}")
    return done.stdout


def parse_headers(include):
    names = sorted(p.relative_to(include).as_posix() for p in pathlib.Path(include).rglob("*.h"))
    text = "".join(f"#include <{name}>\n" for name in names)
    return json.loads(run(["clang++", "-x", "c++", "-std=c++17", f"-I{include}", "-fsyntax-only",
                           "-Xclang", "-ast-dump=json", "-"], text))


def annotate_files(node, state):
    """clang names a file only where it differs from the place printed before."""
    for key in ("loc", "range"):
        place = node.get(key, {})
        for part in (place, place.get("spellingLoc", {}), place.get("expansionLoc", {}),
                     place.get("begin", {}), place.get("end", {})):
            for spot in (part, part.get("spellingLoc", {}), part.get("expansionLoc", {})):
                state["file"] = spot.get("file", state["file"])
        if key == "loc":
            node["in_file"] = state["file"]
    for child in node.get("inner", []):
        annotate_files(child, state)


def is_marked(node):
    return any(child.get("kind") == "VisibilityAttr" for child in node.get("inner", []))


def has_body(node):
    return any(child.get("kind") == "CompoundStmt" for child in node.get("inner", []))


def is_optional(node):
    return (has_body(node) or node.get("inline") or node.get("constexpr") or node.get("isImplicit")
            or node.get("explicitlyDefaulted") or node.get("pure"))


def add_function(node, marked, ours, found):
    name = node.get("mangledName")
    if not name or node.get("explicitlyDeleted"):
        return
    if is_optional(node):
        found.allowed.add(name)
    elif marked or is_marked(node):
        found.required[name] = node.get("name", name)
    elif ours:
        found.hidden[name] = node.get("name", name)


def add_variable(node, marked, ours, found):
    name = node.get("mangledName", node.get("name"))
    if node.get("storageClass") == "extern" or (marked and node.get("storageClass") == "static"):
        if marked or is_marked(node):
            found.required[name] = node["name"]
        elif ours:
            found.hidden[name] = node["name"]


def walk(node, marked, include, found):
    for child in node.get("inner", []):
        kind = child.get("kind")
        ours = child.get("in_file", "").startswith(include)
        if not ours and kind not in ("LinkageSpecDecl", "NamespaceDecl"):
            continue  # the C library's, some of which are marked as well
        if kind in FUNCTIONS:
            add_function(child, marked, ours, found)
        elif kind == "VarDecl":
            add_variable(child, marked, ours, found)
        elif kind in RECORDS:
            inner_marked = marked or is_marked(child)
            if inner_marked:
                found.classes.add(child.get("name"))
            walk(child, inner_marked, include, found)
        elif kind in ("LinkageSpecDecl", "NamespaceDecl") and child.get("name") != "std":
            walk(child, False, include, found)
        elif kind == "ClassTemplateDecl" and ours:
            # Only what is instantiated explicitly, and so marked, counts.
            for special in child.get("inner", []):
                if special.get("kind") == "ClassTemplateSpecializationDecl" and is_marked(special):
                    found.classes.add(special.get("name"))
                    walk(special, True, include, found)


def exports_of(library):
    lines = run(["nm", "--dynamic", "--defined-only", library]).splitlines()
    entries = (line.split() for line in lines)
    return {fields[-1].split("@")[0] for fields in entries if fields[-2] != "A"}


def demangle(names):
    names = sorted(names)
    return dict(zip(names, run(["c++filt"], "\n".join(names)).splitlines())) if names else {}


def class_of_data(text):
    for prefix in CLASS_DATA:
        if text.startswith(prefix):
            return text[len(prefix):].split("<")[0]
    if "thunk to " in text:
        return text.split("thunk to ", 1)[1].split("::")[0].split("<")[0]
    return None


def main():
    library, include = sys.argv[1], str(pathlib.Path(sys.argv[2]).resolve())
    tree = parse_headers(include)
    annotate_files(tree, {"file": ""})
    found = Declarations()
    walk(tree, False, include, found)
    exported = demangle(exports_of(library))
    # One constructor or destructor has several symbols; their readable names are equal.
    required = {text: name for name, text in demangle(found.required).items()}
    allowed = set(demangle(found.allowed).values()) | set(required)
    texts = set(exported.values())

    missing = sorted(text for text in required if text not in texts)
    surplus = sorted(text for text in texts
                     if text not in allowed and class_of_data(text) not in found.classes)
    hidden = sorted(set(demangle(found.hidden).values()) - allowed)
    for words, names in (("declared for export but not exported", missing),
                         ("exported but not declared", surplus),
                         ("declared without a body and not marked for export", hidden)):
        for name in names:
            print(f"{words}: {name}")
    print(f"{len(required)} declarations, {len(texts)} exports")
    if not required:
        print("no declarations found: nothing was checked")
    sys.exit(1 if missing or surplus or hidden or not required else 0)


main()
