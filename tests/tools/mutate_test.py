#!/usr/bin/python3
"""What ./dev mutate is trusted to do, it does."""

import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

PROJECT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(PROJECT / "tools" / "mutate"))
sys.dont_write_bytecode = True
import results  # noqa: E402
import survivors  # noqa: E402
from mutant import Change, mutants_of  # noqa: E402
from operators import changed_text  # noqa: E402
from suites import SUITES, Suite, folder_of  # noqa: E402
from worker import copy_project, failed_test  # noqa: E402

from syntax import Reader  # noqa: E402

FUNCTION = b"int f(int a) {\n    return a < 1\n        && a;\n}\n"


def change(operator, before, after, source=FUNCTION):
    start = source.index(before)
    return Change(operator, start, start + len(before), after, start, start + len(before))


class Mutants(unittest.TestCase):
    def test_a_change_keeps_the_numbers_of_the_lines(self):
        dropped = change("dropped condition", b"\n        && a", "")
        self.assertEqual(dropped.apply(FUNCTION), b"int f(int a) {\n    return a < 1\n;\n}\n")

    def test_a_key_does_not_depend_on_lines_and_formatting(self):
        source = b"\n\n" + FUNCTION.replace(b"\n        &&", b" &&")
        keys = {mutants_of("a.cpp", "native", text,
                           [("f", change("logic", text[text.index(b"a <"):text.index(b";")],
                                         "a", text))])[0].key
                for text in (FUNCTION, source)}
        self.assertEqual(keys, {"a.cpp: f: logic: a < 1 && a -> a"})

    def test_mutants_that_read_alike_are_numbered(self):
        source = b"f(1); f(1);"
        changes = [("g", Change("constant", at, at + 1, "2", at, at + 1)) for at in (2, 8)]
        self.assertEqual([mutant.key for mutant in mutants_of("a.cpp", "native", source, changes)],
                         ["a.cpp: g: constant: 1 -> 2", "a.cpp: g: constant: 1 -> 2 (2)"])

    def test_the_same_change_is_made_once(self):
        changes = [("f", change("relation", b"<", "<=")), ("f", change("logic", b"<", "<="))]
        self.assertEqual(len(mutants_of("a.cpp", "native", FUNCTION, changes)), 1)

    def test_other_mutants_do_not_change_the_order(self):
        changes = [("f", change("relation", b"<", other)) for other in ("<=", ">=", ">", "==")]
        all_of_them = mutants_of("a.cpp", "native", FUNCTION, changes)
        some = mutants_of("a.cpp", "native", FUNCTION, changes[1:])

        def order(mutants, seed):
            return [mutant.after for mutant in sorted(mutants, key=lambda each: each.rank(seed))]
        for seed in range(5):
            self.assertEqual([after for after in order(all_of_them, seed) if after != "<="],
                             order(some, seed))
        self.assertGreater(len({tuple(order(all_of_them, seed)) for seed in range(20)}), 1)

    def test_a_text_changes_in_one_letter(self):
        for before, after in (('L"STORE"', 'L"TTORE"'), (r'L"\n"', r'L"~"'), ('": "', '"~ "'),
                              (r'"\\az"', r'"\\bz"'), ('"z9"', '"a9"')):
            self.assertEqual(changed_text(before), after)


class Suites(unittest.TestCase):
    def test_every_source_has_tests(self):
        for file in ("util/src/lower.cpp", "asn1/include/der.h", "pkcs11/src/module.cpp",
                     "src/pkcs11helper.cpp", "src/cspbinding.h", "include/certitem.h"):
            suite = next(suite for suite in SUITES["native"] if file.startswith(suite.begins))
            self.assertTrue(suite.programs)
        self.assertEqual(folder_of("include/certitem.h"), "src")

    def test_torture_comes_last(self):
        self.assertEqual(Suite("a", ("b",), ("c",)).all_programs(), ("b", "c"))

    def test_every_test_program_is_declared(self):
        declared = "".join(file.read_text(encoding="utf-8")
                           for file in (PROJECT / "tests").rglob("CMakeLists.txt"))
        for suite in (suite for of_system in SUITES.values() for suite in of_system):
            for program in suite.all_programs():
                self.assertIn(f"_test({program}", declared)


class Survivors(unittest.TestCase):
    TEXT = "# No file\n# is named.\na: f: one\na: f: two\n\n# Other reason.\nb: g: three\n"

    def test_the_comments_above_lines_are_their_reason(self):
        self.assertEqual([(entry.key, entry.reason) for entry in survivors.read(self.TEXT)],
                         [("a: f: one", "No file is named."), ("a: f: two", "No file is named."),
                          ("b: g: three", "Other reason.")])

    def complaints(self, text, keys, verdicts):
        return list(survivors.complaints(survivors.read(text), keys, verdicts))

    def test_a_list_of_survivors_is_right(self):
        keys = {"a: f: one", "a: f: two", "b: g: three"}
        self.assertEqual(self.complaints(self.TEXT, keys, {"a: f: one": results.SURVIVED}), [])

    def test_what_does_not_belong_in_the_list_is_found(self):
        keys = {"a", "b", "c", "d"}
        for text, verdicts in (("a\n", {}), ("# Why.\ne\n", {}), ("# Why.\na\na\n", {}),
                               ("# Why.\na\n", {"a": results.KILLED}),
                               ("# Why.\na\n", {"a": results.TIMED_OUT}),
                               ("# Why.\na\n", {"a": results.EQUIVALENT}),
                               ("# Why.\na\n", {"a": results.NOT_BUILT})):
            self.assertEqual(len(self.complaints(text, keys, verdicts)), 1, text)

    def test_every_entry_of_the_list_has_a_reason(self):
        entries = survivors.read(
            (PROJECT / "tools" / "mutate" / "survivors").read_text(encoding="utf-8"))
        self.assertEqual([entry.key for entry in entries if not entry.reason], [])


class InAFolder(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name).resolve()

    def write(self, name, text):
        path = self.folder / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text, encoding="utf-8")
        return path


class Results(InAFolder):
    def test_a_verdict_is_kept_until_its_basis_changes(self):
        kept = results.Results(self.folder / "new" / "results.json")
        kept.put("a", "1", results.KILLED, "T.x")
        again = results.Results(self.folder / "new" / "results.json")
        self.assertEqual(again.get("a", "1"), results.KILLED)
        self.assertIsNone(again.get("a", "2"))
        self.assertIsNone(again.get("b", "1"))

    def test_a_digest_tells_changed_files(self):
        file = self.write("tests/a_test.cpp", "1")
        before = results.digest_of([self.folder / "tests"])
        self.assertEqual(results.digest_of([self.folder / "tests"]), before)
        file.write_text("2", encoding="utf-8")
        self.assertNotEqual(results.digest_of([self.folder / "tests"]), before)

    def test_the_first_failed_test_is_named(self):
        log = self.write("log", "x\n[  FAILED  ] A.b, where x (1 ms)\n[  FAILED  ] C.d\n")
        self.assertEqual(failed_test(log), "A.b")
        self.assertEqual(failed_test(self.write("log", "")), "it ended early")


class Copies(InAFolder):
    def setUp(self):
        super().setUp()
        self.project, self.copy = self.folder / "project", self.folder / "copy"
        self.write("project/src/a.cpp", "one")
        self.write("project/.gitignore", "build\n")
        self.write("project/build/deps/x", "")
        subprocess.run(["git", "init", "--quiet", self.project], check=True)
        copy_project(self.project, self.copy)

    def test_a_copy_has_the_sources_and_shares_what_they_need(self):
        self.assertEqual((self.copy / "src" / "a.cpp").read_text(encoding="utf-8"), "one")
        self.assertTrue((self.copy / "build" / "deps" / "x").exists())

    def test_what_an_interrupted_run_left_is_taken_back(self):
        self.write("copy/src/a.cpp", "mutant")
        left = self.write("copy/src/b.cpp", "")
        built = self.write("copy/build/native/a.o", "")
        copy_project(self.project, self.copy)
        self.assertEqual((self.copy / "src" / "a.cpp").read_text(encoding="utf-8"), "one")
        self.assertFalse(left.exists())
        self.assertTrue(built.exists())

    def test_what_did_not_change_is_not_written(self):
        before = (self.copy / "src" / "a.cpp").stat().st_mtime_ns
        copy_project(self.project, self.copy)
        self.assertEqual((self.copy / "src" / "a.cpp").stat().st_mtime_ns, before)


class Places(InAFolder):
    """Which changes are found in a source."""

    def mutants(self, text):
        path = self.write("util/a.cpp", text)
        reader = Reader(self.folder, lambda name: name.startswith("util/"))
        return list(reader.mutants(path, ["-std=c++20"], "native"))

    def changes(self, text, *operators):
        return {f"{mutant.before} -> {mutant.after}" for mutant in self.mutants(text)
                if mutant.change.operator in operators}

    def test_relations(self):
        self.assertEqual(self.changes("bool f(int a, int b) { return a /* < */ < b; }", "relation"),
                         {"a /* < */ < b -> a /* < */ <= b", "a /* < */ < b -> a /* < */ >= b"})

    def test_overloaded_relations(self):
        self.assertEqual(
            self.changes("struct S { friend bool operator==(S, S) { return true; } };\n"
                         "bool f(S a, S b) { return a == b || a != b; }", "relation"),
            {"a == b -> a != b", "a != b -> a == b"})

    def test_relations_that_depend_on_a_parameter(self):
        self.assertEqual(self.changes("template <class T> bool f(T a) { return a.x() == a; }",
                                      "relation"), {"a.x() == a -> a.x() != a"})

    def test_the_brackets_of_templates_are_no_relations(self):
        self.assertEqual(self.changes("template <class T> T g(T a) { return a; }\n"
                                      "int f() { return g<int>(1); }", "relation"), set())

    def test_conditions(self):
        self.assertEqual(
            self.changes("void g();\nvoid f(bool a, bool b) {\n"
                         "if (a) g(); else g();\n if (bool c = b) g();\n while (a && !b) g();\n"
                         "a ? g() : g(); }",
                         "negated condition", "dropped condition", "logic", "negation"),
            {"a -> !(a)", "a -> false && (a)", "a && !b -> !(a && !b)", "a && !b -> a",
             "a && !b -> !b", "a && !b -> a || !b", "!b -> b"})

    def test_statements(self):
        self.assertEqual(
            self.changes("void g(int);\nint f(int a) {\n g(a);\n if (a) g(1); else a = 3;\n"
                         "for (g(2); g(3), a; ++a) { g(4); break; }\n if (a) throw 1;\n"
                         "return a; }",
                         "dropped call", "dropped throw", "dropped statement", "dropped jump"),
            {"g(a) -> ", "g(1) -> ", "a = 3 -> ", "g(4) -> ", "break -> ", "throw 1 -> "})

    def test_arguments_of_one_type_are_swapped(self):
        self.assertEqual(
            self.changes("struct P { int a, b; };\nint g(int, const char*, const int&);\n"
                         "P f(int a, int b) { g(a, \"\", b); return P{a, b}; }",
                         "swapped arguments"),
            {'g(a, "", b) -> g(b, "", a)'})
        self.assertEqual(
            self.changes("struct S {};\nstruct P { S a, b; };\nP f(S a, S b) { return P{a, b}; }",
                         "swapped arguments"), {"{a, b} -> {b, a}"})

    def test_constants_and_texts(self):
        self.assertEqual(
            self.changes("int f() { return 0x10 + (true ? 'a' : 0); }\n"
                         'const wchar_t* g = L"KEY";\nconst wchar_t* file = L"util\\\\src\\\\a.cpp";',
                         "constant", "text", "source file"),
            {"0x10 -> (0x10 + 1)", "0x10 -> (0x10 - 1)", "true -> false", "'a' -> ('a' + 1)",
             "0 -> (0 + 1)", 'L"KEY" -> L"LEY"',
             'L"util\\\\src\\\\a.cpp" -> L"util\\\\src\\\\other.cpp"'})

    def test_the_numbers_of_a_table_come_last(self):
        found = self.mutants("struct R { int a, b; };\nR table[] = {{1, 2}, {3, 4}};\n"
                             "int f() { return 5; }")
        order = [mutant.change.operator for mutant in sorted(found, key=lambda each: each.rank(1))]
        self.assertEqual(order, ["constant"] * 2 + ["table"] * 4)

    def test_arithmetic(self):
        self.assertEqual(self.changes("void f(unsigned a) { a = a << 2; a += 1; ++a; a = ~a; }",
                                      "arithmetic"),
                         {"a << 2 -> a >> 2", "a += 1 -> a -= 1", "++a -> --a", "~a -> a"})

    def test_functions_that_do_nothing_and_return_something_else(self):
        self.assertEqual(
            self.changes("struct S { S(); };\nvoid g();\nvoid f() { g(); g(); }\n"
                         "bool b() { return f(), true; }\nint i(int a) { return a; }\n"
                         "S s(S a) { return a; }\nint* p(int* a) { return a; }",
                         "early return", "return value"),
            {"{ -> { return;", "return f(), true -> return !(f(), true)",
             "return a -> return (a) + 1", "return a -> return {}", "return a -> return nullptr"})

    def test_what_a_macro_makes_is_left_alone(self):
        self.assertEqual(self.mutants("#define LESS(a, b) ((a) < (b) && 3)\n"
                                      "#define EMPTY\nbool f(int a) { EMPTY LESS(a, 1); }"), [])

    def test_what_the_compiler_checks_is_left_alone(self):
        self.assertEqual(self.mutants("static_assert(sizeof(int) == 4);"), [])

    def test_a_place_is_named_by_its_function(self):
        found = self.mutants("namespace n { struct S { int a = 1; void f(); };\n"
                             "void S::f() { [] { return 2; }(); }\n"
                             "template <class T> struct P { P() { T(3); } }; int v = 4; }")
        self.assertEqual({(mutant.before, mutant.function) for mutant in found
                          if mutant.change.operator == "constant"},
                         {("1", "S::a"), ("2", "S::f"), ("3", "P::P"), ("4", "v")})

    def test_a_header_is_read_once(self):
        self.write("util/a.h", "inline int f() { return 1; }")
        reader = Reader(self.folder, lambda name: name.startswith("util/"))
        counts = [len(list(reader.mutants(self.write(name, '#include "a.h"\n'), ["-std=c++20"],
                                          "native"))) for name in ("util/a.cpp", "util/b.cpp")]
        self.assertEqual(counts, [2, 0])

    def test_a_source_that_is_not_understood_is_an_error(self):
        with self.assertRaises(RuntimeError):
            self.mutants('#include "missing.h"')


if __name__ == "__main__":
    unittest.main()
