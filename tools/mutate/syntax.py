"""The syntax trees of the sources, by libclang."""

import re
from pathlib import Path

from clang import cindex

from mutant import mutants_of
from operators import changes_at

FUNCTIONS = {"FUNCTION_DECL", "CXX_METHOD", "CONSTRUCTOR", "DESTRUCTOR", "CONVERSION_FUNCTION",
             "FUNCTION_TEMPLATE"}
CLASSES = {"CLASS_DECL", "STRUCT_DECL", "CLASS_TEMPLATE", "UNION_DECL",
           "CLASS_TEMPLATE_PARTIAL_SPECIALIZATION"}
# The compiler itself checks these, or they say nothing of what a program does.
IGNORED = {"STATIC_ASSERT", "CONCEPT_DECL"}
NAMED = {"VAR_DECL", "FIELD_DECL", "ENUM_CONSTANT_DECL"}


def builtin_headers():
    """Where the headers that belong to libclang are."""
    version = re.search(r"\d+", Path(cindex.conf.lib._name).name).group()
    return next(Path("/usr/lib").glob(f"llvm-{version}/lib/clang/*/include")).parent


class Node:
    """A part of a file. What the preprocessor made of a macro is no part of a file."""

    def __init__(self, cursor, kind, children, context):
        self.kind = kind
        self.start = cursor.extent.start.offset
        self.end = cursor.extent.end.offset
        self.children = children
        self.is_expression = cursor.kind.is_expression()
        self.in_table = context.lists > 1 and not context.named
        self.function_result = context.result
        self.type = self.result = ""
        self.arguments = []
        if self.is_expression:
            self.type = plain(cursor.type)
        elif kind in FUNCTIONS:
            self.result = result_of(cursor, kind)


def plain(given):
    """A type's name, without const and references; empty if it depends on a template's parameters."""
    given = given.get_canonical()
    if given.kind in (cindex.TypeKind.INVALID, cindex.TypeKind.DEPENDENT,
                      cindex.TypeKind.UNEXPOSED):
        return ""
    return re.sub(r"\bconst\b|&|\s*\bvolatile\b", "", given.spelling).strip()


def result_of(cursor, kind):
    if kind in ("CONSTRUCTOR", "DESTRUCTOR"):
        return "void"
    result = cursor.result_type.get_canonical()
    return "" if result.kind in (cindex.TypeKind.INVALID, cindex.TypeKind.UNEXPOSED,
                                 cindex.TypeKind.DEPENDENT) else result.spelling


class Context:
    """What a node lies in."""

    def __init__(self, function="", result="", lists=0, named=False):
        self.function = function
        self.result = result
        self.lists = lists
        self.named = named  # in a function, whose variables give no names

    def inside(self, cursor, kind):
        lists = self.lists + (kind == "INIT_LIST_EXPR")
        if kind in FUNCTIONS:
            return Context(self.join(cursor), result_of(cursor, kind), 0, True)
        if kind == "LAMBDA_EXPR":
            return Context(self.function, "", 0, True)
        if kind in CLASSES or kind in NAMED and not self.named:
            return Context(self.join(cursor), self.result, lists, self.named)
        return Context(self.function, self.result, lists, self.named)

    def join(self, cursor):
        name = re.sub(r"<.*", "", cursor.spelling) if "operator" not in cursor.spelling \
            else cursor.spelling
        if not self.function and cursor.semantic_parent.kind.name in CLASSES:
            name = re.sub(r"<.*", "", cursor.semantic_parent.spelling) + "::" + name
        return f"{self.function}::{name}" if self.function else name


class File:
    """Collects the changes of one file."""

    def __init__(self, path, macros):
        self.path = path
        self.source = Path(path).read_bytes()
        self.macros = macros
        self.changes = []

    def is_written(self, start, end):
        return not any(start < macro_end and macro_start < end
                       for macro_start, macro_end in self.macros)

    def walk(self, cursor, context):
        """The node of the cursor, or nothing if it is not written in this file."""
        kind = cursor.kind.name
        if kind in IGNORED:
            return None
        extent = cursor.extent
        if not extent.start.file or extent.start.file.name != self.path or \
                extent.end.file.name != self.path:
            return None
        inner = context.inside(cursor, kind)
        children = [node for child in cursor.get_children() if (node := self.walk(child, inner))]
        node = Node(cursor, kind, children, inner)
        if kind == "CALL_EXPR":
            places = [(argument.extent.start.offset, argument.extent.end.offset)
                      for argument in cursor.get_arguments() if argument]
            node.arguments = [child for place in places for child in children
                              if (child.start, child.end) == place][:len(places)]
        for change in changes_at(node, self.source):
            if self.is_written(change.start, max(change.end, change.start + 1)):
                self.changes.append((inner.function or "file", change))
        return node


def macros_by_file(unit, wanted):
    """Where macros are used."""
    found = {}
    for cursor in unit.cursor.get_children():
        if cursor.kind.name == "MACRO_INSTANTIATION":
            extent = cursor.extent
            if extent.start.file and extent.start.file.name in wanted:
                found.setdefault(extent.start.file.name, []).append(
                    (extent.start.offset, extent.end.offset))
    return found


class Reader:
    """Reads one translation unit after the other; takes each file from the first that has it."""

    def __init__(self, project, is_wanted):
        self.project = Path(project)
        self.is_wanted = is_wanted
        self.index = cindex.Index.create()
        self.read = set()

    def relative(self, name):
        path = Path(name).resolve()
        return path.relative_to(self.project).as_posix() if path.is_relative_to(self.project) else ""

    def mutants(self, path, arguments, system):
        """The mutants of a translation unit's files that no other has had yet."""
        unit = self.index.parse(
            str(path), [*arguments, "-resource-dir", str(builtin_headers())],
            options=cindex.TranslationUnit.PARSE_DETAILED_PROCESSING_RECORD)
        errors = [str(message) for message in unit.diagnostics
                  if message.severity >= cindex.Diagnostic.Error]
        if errors:
            raise RuntimeError(f"libclang does not understand {path}: {errors[0]}")
        names = {str(path), *(str(include.include) for include in unit.get_includes())}
        wanted = {name for name in names
                  if self.is_wanted(self.relative(name)) and self.relative(name) not in self.read}
        macros = macros_by_file(unit, wanted)
        files = {name: File(name, macros.get(name, [])) for name in wanted}
        for cursor in unit.cursor.get_children():
            place = cursor.location.file
            if place and place.name in files and not cursor.kind.is_preprocessing():
                files[place.name].walk(cursor, Context())
        for name, file in files.items():
            self.read.add(self.relative(name))
            yield from mutants_of(self.relative(name), system, file.source, file.changes)
