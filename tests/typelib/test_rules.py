"""Tests of the generator's spelling, naming and marshalling rules, its
layout, and the catalogue data.  The generator's folder is on PYTHONPATH."""

import os
import tempfile
import unittest

import anchors
import automation
import catalogue
import drops
import identifiers
import layout
import marshalling
import naming
import output
import typenames
from drops import Drop

SRC = os.environ.get("KW_SOURCE_DIR") or os.path.abspath(
    os.path.join(os.path.dirname(__file__), "..", ".."))
CATALOGUE = os.path.join(SRC, "typelib", "catalogue")
FIRST = identifiers.DISPID_BASE


def f(name, params=(), result="void", kind="method"):
    """A declarations record of a member."""
    return {"name": name, "kind": kind, "result": result,
            "params": [{"name": "", "type": t} for t in params]}


class Spelling(unittest.TestCase):
    def test_spellings_and_flattening(self):
        known = catalogue.load(CATALOGUE).known_names
        self.assertEqual(known, [typenames.compiler_spelling(n) for n in known])
        enums = {"Qt::WindowType", "QLocale::Country"}
        for clang, compiler, flat in [
                ("QHash<QObject *, QObject **>", "QHash<QObject *,QObject * *>", "QHash_QObject___QObject_____"),
                ("QList<void (*)()>", "QList<void (__cdecl*)(void)>", "QList_void____cdecl___void__"),
                ("QList<QObject *(*)()>", "QList<QObject * (__cdecl*)(void)>", None),
                ("QHash<int, void (*)(void *)>", "QHash<int,void (__cdecl*)(void *)>", None),
                ("QList<bool (*)(void **)>", "QList<bool (__cdecl*)(void * *)>", None),
                ("QFlags<Qt::WindowType>", "QFlags<enum Qt::WindowType>", "QFlags_enum_Qt_WindowType_"),
                ("QList<QLocale::Country>", "QList<enum QLocale::Country>", None),
                ("QList<QPair<int, int> >", "QList<QPair<int,int> >", "QList_QPair_int_int___"),
                ("QVector<const char *>", "QVector<char const *>", None),
                ("QHash<const QObject *, int>", "QHash<QObject const *,int>", None),
                ("QVarLengthArray<tagMSG, 256>", "QVarLengthArray<tagMSG,256>", "QVarLengthArray_tagMSG_256_"),
                ("long long", "__int64", None), ("unsigned long long", "unsigned __int64", None),
                ("const QString &", "QString const &", None), ("QObject *const &", "QObject * const &", None),
                ("QTextCodec::ConverterState", "QTextCodec::ConverterState", "QTextCodec_ConverterState"),
                ("QList<QTextCodec *>", "QList<QTextCodec *>", "QList_QTextCodec___"),
                ("std::_Iterator_base", "std::_Iterator_base", "std__Iterator_base")]:
            self.assertEqual(compiler, typenames.compiler_spelling(clang, enums), clang)
            if flat:
                self.assertEqual(flat, naming.flatten(compiler))


class Naming(unittest.TestCase):
    def test_member_names(self):
        for type_name, kind, name, result, want in [
                ("QString", "destructor", "~QString", "void", "QString_DTOR_QString"),
                ("QString", "operator", "operator<=", "bool", "QString_operator_LESS_ASSIGMENT"),
                ("QString", "operator", "operator=", "void", "QString_operator_ASSIGMENT"),
                ("QString", "operator", "operator[]", "void", "QString_operator_INDEXING"),
                ("QString", "operator", "operator->", "void", "QString_operator_MINUS_GREATER"),
                ("QString", "conversion", "operator char const *", "char const *",
                 "QString_operator_char_const__ASTERIX"),
                ("QString", "conversion", "operator QModelIndex const &", "QModelIndex const &",
                 "QString_operator_QModelIndex_const__AND"),
                ("QString", "method", "arg", "void", "QString_arg"),
                # A template instance's destructor carries its template
                # arguments; a nested class's is named after it alone.
                ("QList<int>", "destructor", "~QList", "void", "QList_int__DTOR_QList_int_"),
                ("QMap<QString,QMap<QString,QVariant> >::const_iterator", "destructor", "~const_iterator",
                 "void", "QMap_QString_QMap_QString_QVariant____const_iterator_DTOR_const_iterator")]:
            self.assertEqual(want, naming.member_base_name(type_name, f(name, (), result, kind)))
        self.assertEqual(["a", "b", "a_2", "a_3", "b_2"], naming.number_overloads(["a", "b", "a", "a", "b"]))


class Marshalling(unittest.TestCase):
    """The Automation form of one C++ type of each row: the IDL type and
    direction of a parameter, the [out, retval] type of a result and the
    kinds a script host reads (argument, result). What the bodies do with
    them is the sample and Qt tests' (they call the generated code)."""

    ROWS = [
        # type, IDL, direction, kinds
        ("bool", "long", "in", "bb"),
        ("enum QChar::Category", "long", "in", "ee"),
        ("int const", "int", "in", "nn"),
        ("unsigned int", "unsigned int", "in", "nn"),
        ("__int64", "__int64", "in", "nn"),
        ("char", "unsigned char", "in", "nn"),
        ("float", "float", "in", "nn"),
        ("char const *", "unsigned char*", "in, out", "tt"),
        ("unsigned short const *", "unsigned short*", "in, out", "pp"),
        ("bool *", "long*", "in, out", "pp"),
        ("int const &", "int*", "in, out", "pn"),
        ("bool &", "long*", "in, out", "pb"),
        ("void *", "void*", "in, out", "pp"),
        ("void * *", "void**", "in, out", "pp"),
        ("QString const &", "IDispatch*", "in", "so"),
        ("QSize", "IDispatch*", "in", "oo"),
        ("QFlags<enum Qt::WindowType>", "IDispatch*", "in", "oo"),
        ("QWidget const *", "IDispatch*", "in", "or"),
    ]

    def test_rows(self):
        for text, idl, direction, kinds in self.ROWS:
            got_idl, got_direction, row = automation.map_type(typenames.parse_type(text))
            self.assertEqual((idl, direction), (got_idl, got_direction), text)
            result = marshalling.classify_result(text)
            self.assertEqual(idl + "*", result.retval, text)
            self.assertEqual(kinds, row.arg_kind + result.script_kind, text)
        self.assertIsNone(marshalling.classify_result("void").retval)

    def test_types_without_a_form_and_classes_without_a_wrapper(self):
        for text in ("QObject * const &", "void (__cdecl*)(void)", "QWidget * *", "char [16]",
                     "long double", "wchar_t const *", "void &", "void"):
            with self.assertRaises(Drop, msg=text) as caught:
                automation.map_type(typenames.parse_type(text))
            self.assertEqual(drops.NO_AUTOMATION_FORM, caught.exception.kind, text)
        with self.assertRaises(Drop) as caught:
            automation.require_wrapper(typenames.parse_type("QStringRef"), {"QString"})
        self.assertEqual((drops.NO_WRAPPER_CLASS, "QStringRef"), (caught.exception.kind, caught.exception.detail))


class Layout(unittest.TestCase):
    """The layout over small catalogues of its own.  Numbering, dropping
    and the order of overloads over the real library are typelib_tests'
    (NamedMembers, QAbstractButtonMembersInOrder)."""

    def build(self, classes, members, known=("A", "B", "QString")):
        with tempfile.TemporaryDirectory() as d:
            with open(os.path.join(d, "classes.tsv"), "w") as out:
                out.write("".join("%d\t%s\t%s\t%s\t%s\t%s\n" % ((i,) + c) for i, c in enumerate(classes)))
            with open(os.path.join(d, "known_type_names.txt"), "w") as out:
                out.write("".join(k + "\n" for k in known))
            cat = catalogue.load(d)
        return layout.build(cat, {p: {"place": p, "found": True, "members": ms} for p, ms in members.items()})

    def test_template_argument_pointer_takes_any_wrapper(self):
        # An argument declared as a pointer to the template's own argument
        # takes any wrapper; the same class by reference or as a result
        # needs one.  The other object rules hold in typelib_tests over the
        # real library (NamedMembers).
        (p,) = self.build([(1, "value", 0, 1, "P<QObject>")], {0: [
            f("operator=", ["QObject *"], "P<QObject> &", "operator"), f("get", result="QObject *"),
            f("ref", ["QObject const &"])]}, known=("P<QObject>",))
        self.assertEqual([("P_QObject__operator_ASSIGMENT", "IDispatch*", "IDispatch**")],
                         [(m.name, m.params[0].idl, m.retval) for m in p.kept])

    def test_anchors_hold_or_say_why(self):
        """Each fact of anchors.txt holds or not, and a missed one says why."""
        itfs = self.build(
            [(1, "value", 3, 1, "A"), (1, "value", 2, 1, "B")],
            {0: [f("f", ["int"]), f("f", ["double"]), f("g"), f("g", ["int * &"])],
             1: [f("h"), f("k", ["int"]), f("k", ["int * &"])]})
        with tempfile.TemporaryDirectory() as tmp:
            path = os.path.join(tmp, "anchors.txt")
            with open(path, "w") as out:
                out.write("# comment\n"
                          "Iwrp_A A_f_2 present\nIwrp_A A_f absent   # said twice\n"
                          "Iwrp_A A_g present\nIwrp_B B_k 0x0D001004\nIwrp_B B_k first\n"
                          "Iwrp_B B_h 0x0D001004\nIwrp_B - exactly B_h\nIwrp_C C_x present\n"
                          "Iwrp_A A_f takes (double)\nIwrp_A A_f_2 takes (double)\n")
            results = anchors.check(itfs, anchors.load(path))
            with open(path, "w") as out:
                out.write("Iwrp_A A_f kept\n")
            self.assertRaises(ValueError, anchors.load, path)
        self.assertEqual([True, False, False, False, False, True, False, False, True, False],
                         [r.met for r in results])
        # A name the declarations hold: every candidate of it with its fate.
        self.assertEqual(["the declarations give 2 candidates of that name:",
                          "  A_f: f(double), 0x0D001000 kept", "  A_f_2: f(int), 0x0D001001 kept"],
                         results[1].details)
        self.assertIn("  A_g: g(int * &), 0x0D001002 dropped, no Automation form: int * &",
                      results[2].details)
        # B starts after A's four numbers, one above what the catalogue's
        # three members of A leave.
        self.assertEqual(["generated at 0x0D001005",
                          "the catalogue's number leaves room for at most 1 candidates before it "
                          "(the earlier interfaces of half 1 hold 3 members)",
                          "the declarations give 1 (1 kept, 0 dropped): h() kept; "
                          "in the whole interface 3 candidates, 1 dropped"], results[3].details)
        self.assertEqual(["generated first member: B_h", "candidates before it: 1 (1 kept, 0 dropped): h() kept"],
                         results[4].details)
        self.assertEqual(["also generated: B_k, k(int)"], results[6].details)
        self.assertEqual(["no such interface"], results[7].details)
        self.assertEqual("generated with (int)", results[9].details[0])


class Wrapping(unittest.TestCase):
    def test_long_lines_break_only_where_whitespace_may_move(self):
        code = '    f(a, "x, yyyyyyyyyyyy", g(b, c), d);  // trailing, comment\n#define M(a, b) a + b\nshort(a, b);'
        self.assertEqual(output.wrap_source(code, width=24).split("\n"), [
            "    f(a,", '        "x, yyyyyyyyyyyy",', "        g(b, c),", "        d);  // trailing, comment",
            "#define M(a, b) a + b", "short(a, b);"])
        comment = "  // " + " ".join("word%d" % i for i in range(14))
        self.assertEqual(output.wrap_source(comment, width=48).split("\n"), [
            "  // word0 word1 word2 word3 word4 word5 word6", "  //   word7 word8 word9 word10 word11 word12",
            "  //   word13"])


class CatalogueData(unittest.TestCase):
    def test_totals_known_names_and_compositions(self):
        """The classes and member counts add up to the catalogue's totals;
        the wrapped entries are the names the manager knows (QWorkspace's
        interface is declared only); each composition names wrapped entries,
        base first and the entry's own wrapper last."""
        cat = catalogue.load(CATALOGUE)
        self.assertEqual((cat.targets["interfaces"], cat.targets["members"]),
                         (len(cat.entries), sum(e.members for e in cat.entries)))
        wrapped = {e.flat for e in cat.entries if e.wrapped}
        self.assertEqual(wrapped | {"QWorkspace"}, {naming.flatten(n) for n in cat.known_names})
        self.assertEqual(sorted(cat.known_names), sorted(cat.compositions))
        for name, wrappers in cat.compositions.items():
            self.assertLessEqual(set(wrappers), wrapped, name)
            if naming.flatten(name) in wrapped:
                self.assertEqual(naming.flatten(name), wrappers[-1], name)
        self.assertEqual(["QWidget"], cat.compositions["QWorkspace"])
        self.assertEqual(["QWidget", "QAbstractButton", "QPushButton"], cat.compositions["QPushButton"])

    def test_committed_declarations_cover_the_catalogue(self):
        header, classes = layout.read_declarations(os.path.join(SRC, "typelib", "qt48", "declarations.jsonl"))
        self.assertEqual("4.8.7", header["qt"])
        self.assertEqual(list(range(643)), sorted(classes))
        for rec in classes.values():
            for m in rec.get("members", []):
                self.assertEqual(m["result"], typenames.compiler_spelling(m["result"]))


if __name__ == "__main__":
    unittest.main()
