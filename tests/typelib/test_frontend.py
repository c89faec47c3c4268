"""The front-end over a small header of its own: which implicit members and
which nested classes it records.  Needs castxml and mingw-w64's g++ (both
installed by the test command); skipped without them."""

import json
import os
import shutil
import subprocess
import sys
import tempfile
import unittest

SOURCE = os.environ.get("KW_SOURCE_DIR",
                        os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__)))))
FRONTEND = os.path.join(SOURCE, "generator", "frontend.py")
CC = "x86_64-w64-mingw32-g++"

HEADER = """
#define DISABLE_COPY(C) C(const C &); C &operator=(const C &);
class __declspec(dllimport) Base {
public:
    Base();
    virtual ~Base();
    int id() const;
private:
    DISABLE_COPY(Base)
};
class __declspec(dllimport) Derived : public Base {
public:
    virtual int kind() const;
};
class __declspec(dllimport) Image {
public:
    Image();
    Image(const Image &);
    Image &operator=(const Image &);
    virtual ~Image();
};
class __declspec(dllimport) Bitmap : public Image {
public:
    Bitmap &operator=(const Image &);
};
class __declspec(dllimport) Holder {
public:
    virtual ~Holder();
    Derived member;
};
template <typename T> class Seq {
    struct Node { T v; };
public:
    class iterator {
    public:
        Node *i;
        iterator(Node *n) : i(n) {}
        T &operator*() const { return i->v; }
    };
    iterator begin() { return iterator(0); }
};
inline void useSeq() { Seq<int> s; s.begin(); *s.begin(); }
"""

CLASSES = ["Derived", "Bitmap", "Holder", "Seq<int>::Node", "Seq<int>::iterator"]


@unittest.skipUnless(shutil.which("castxml") and shutil.which(CC), "castxml or %s missing" % CC)
class FrontendOverAHeader(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.work = tempfile.mkdtemp(prefix="kw_frontend_test_")
        cls.addClassCleanup(shutil.rmtree, cls.work, ignore_errors=True)
        files = {"include/probe/Probe.h": HEADER, "config/headers.txt": "probe/Probe.h\n",
                 "config/catalogue/classes.tsv": "".join("%d\t1\tvalue\t0\t1\t%s\n" % (i, name)
                                                         for i, name in enumerate(CLASSES))}
        for rel, text in files.items():
            os.makedirs(os.path.dirname(os.path.join(cls.work, rel)), exist_ok=True)
            with open(os.path.join(cls.work, rel), "w") as f:
                f.write(text)
        out = os.path.join(cls.work, "declarations.jsonl")
        run = subprocess.run([sys.executable, FRONTEND, "--include-dir", os.path.join(cls.work, "include"),
                              "--config-dir", os.path.join(cls.work, "config"),
                              "--catalogue", os.path.join(cls.work, "config", "catalogue"), "--out", out],
                             capture_output=True, text=True)
        if run.returncode != 0:
            raise AssertionError(run.stdout + run.stderr)
        with open(out) as f:
            f.readline()
            cls.records = {r["type"]: r for r in map(json.loads, f)}

    def signatures(self, type_name):
        return [(m["name"], [p["type"] for p in m["params"]]) for m in self.records[type_name]["members"]]

    def test_implicit_copy_assignment_only_where_it_compiles(self):
        # A base with its copy assignment out of reach: the derived class's
        # implicit one (and that of a class holding one) cannot be generated.
        self.assertNotIn("operator=", [n for n, _ in self.signatures("Derived")])
        self.assertNotIn("operator=", [n for n, _ in self.signatures("Holder")])
        self.assertIn("~Holder", [n for n, _ in self.signatures("Holder")])
        # An assignment from another type is no copy assignment: the
        # implicit one stays, over the base's public one.
        self.assertEqual([("operator=", ["Image const &"]), ("operator=", ["Bitmap const &"])],
                         [s for s in self.signatures("Bitmap") if s[0] == "operator="])

    def test_class_nested_out_of_reach(self):
        node = self.records["Seq<int>::Node"]
        self.assertEqual("private", node.get("nested_access"))
        self.assertEqual([], node["members"])
        it = self.records["Seq<int>::iterator"]
        self.assertNotIn("nested_access", it)
        self.assertIn(("iterator", ["Seq<int>::Node *"]), self.signatures("Seq<int>::iterator"))


if __name__ == "__main__":
    unittest.main()
