// Real Qt containers and their iterators through kwQtWrappers.dll: element
// copies, a host's iteration loop, whole-container results.
#include <QtCore/QHash>
#include <QtCore/QMap>
#include <QtCore/QSet>
#include <QtCore/QStringList>
#include <QtCore/QVariant>
#include <QtCore/QVector>

#include "QtHost.h"

namespace qttest {
namespace {

// The member names of one kind of iterator and the container calls that give it.
struct IteratorKind {
  const wchar_t* begin;
  const wchar_t* end;
  const wchar_t* notEqual;
  const wchar_t* element;
  const wchar_t* next;  // prefix operator++
};

class ContainerTest : public QtTest {
 protected:
  // Walks `container` as a host does: begin and end, operator!= as the loop
  // test, operator* for each element, prefix ++, every result released.
  QStringList Walk(IDispatch* container, const IteratorKind& kind) {
    QStringList seen;
    Result begin = Get(container, kind.begin), end = Get(container, kind.end);
    for (int guard = 0; guard < 100 && IntOf(Get(begin.object(), kind.notEqual, {Object(end.object())})) == 1;
         ++guard) {
      seen << TextOf(Get(begin.object(), kind.element));
      Get(begin.object(), kind.next);
    }
    return seen;
  }

  QStringList abc_ = QStringList() << "a"
                                   << "b"
                                   << "c";
};

TEST_F(ContainerTest, ListElementsComeBackAsCopies) {
  Held list = Wrap(L"QStringList", &abc_);
  for (const wchar_t* member : {L"QList_QString__at", L"QList_QString__value", L"QList_QString__operator_INDEXING",
                                L"QList_QString__operator_INDEXING_2"}) {
    Result element = Get(list, member, {I4(1)});
    QString* copy = InstanceAs<QString>(element.object());
    ASSERT_NE(nullptr, copy);
    EXPECT_EQ(QString("b"), *copy);
    EXPECT_NE(&abc_[1], copy);
    *copy = "changed";
    EXPECT_EQ(QString("b"), abc_.at(1)) << "writing the copy leaves the list alone";
  }
  EXPECT_TRUE(TextOf(Get(list, L"QList_QString__value", {I4(-1)})).isEmpty());
  EXPECT_TRUE(Messages().empty()) << "value() asserts nothing";
}

TEST_F(ContainerTest, HostLoopsWalkTheListWithEitherIterator) {
  Held list = Wrap(L"QList<QString>", &abc_);
  const IteratorKind kinds[] = {
      {L"QList_QString__begin", L"QList_QString__end", L"QList_QString__iterator_operator_NOTEQUAL",
       L"QList_QString__iterator_operator_ASTERIX", L"QList_QString__iterator_operator_PLUS_PLUS_2"},
      {L"QList_QString__constBegin", L"QList_QString__constEnd", L"QList_QString__const_iterator_operator_NOTEQUAL",
       L"QList_QString__const_iterator_operator_ASTERIX", L"QList_QString__const_iterator_operator_PLUS_PLUS"},
  };
  for (const auto& kind : kinds) EXPECT_EQ(abc_, Walk(list, kind)) << Narrow(kind.begin);

  // Postfix ++ moves the bound iterator and gives the old position.
  Result it = Get(list, L"QList_QString__begin");
  EXPECT_EQ(std::vector<std::wstring>{L"Iwrp_QList_QString__iterator"}, ComposedInterfaces(it.object()));
  Result old = Get(it.object(), L"QList_QString__iterator_operator_PLUS_PLUS", {I4(0)});
  EXPECT_EQ(abc_.begin(), *InstanceAs<QList<QString>::iterator>(old.object()));
  EXPECT_EQ(abc_.begin() + 1, *InstanceAs<QList<QString>::iterator>(it.object()));

  // Constructor members re-initialise the bound iterator in place.
  QList<QString>::iterator* bound = InstanceAs<QList<QString>::iterator>(it.object());
  EXPECT_EQ(S_OK, CallByName(it.object(), L"QList_QString__iterator_iterator_3", {}));
  EXPECT_EQ(nullptr, bound->i);
  EXPECT_EQ(S_OK, CallByName(it.object(), L"QList_QString__iterator_iterator_2", {Object(old.object())}));
  EXPECT_EQ(abc_.begin(), *bound);
  EXPECT_EQ(bound, InstanceAs<QList<QString>::iterator>(it.object())) << "no new iterator";
}

TEST_F(ContainerTest, ScalarContainersAndWholeContainerResults) {
  QList<int> numbers = QList<int>() << 1 << 2;
  Held list = Wrap(L"QList<int>", &numbers);
  LONG three = 3, four = 4, minusTwo = -2;
  EXPECT_EQ(S_OK, CallByName(list, L"QList_int__append", {LongRef(&three)}));
  EXPECT_EQ(QList<int>() << 1 << 2 << 3, numbers);
  // at() gives its element through an int** slot, which Wine's dispatch refuses.
  EXPECT_EQ(DISP_E_BADVARTYPE, CallByName(list, L"QList_int__at", {I4(2)}));

  // A reference-returning operator changes the bound list and gives a copy.
  Result grown = Get(list, L"QList_int__operator_PLUS_ASSIGMENT", {LongRef(&four)});
  EXPECT_EQ(QList<int>() << 1 << 2 << 3 << 4, numbers);
  EXPECT_EQ(numbers, *InstanceAs<QList<int>>(grown.object()));
  EXPECT_NE(&numbers, InstanceAs<QList<int>>(grown.object()));

  // Whole-container results are new containers of their declared type.
  Result set = Get(list, L"QList_int__toSet");
  EXPECT_EQ(std::vector<std::wstring>{L"Iwrp_QSet_int_"}, ComposedInterfaces(set.object()));
  EXPECT_EQ(numbers.toSet(), *InstanceAs<QSet<int>>(set.object()));
  EXPECT_EQ(1, IntOf(Get(set.object(), L"QSet_int__contains", {LongRef(&three)})));
  EXPECT_EQ(4, IntOf(Get(set.object(), L"QSet_int__size")));

  QVector<int> vector;
  Held vectorObject = Wrap(L"QVector<int>", &vector);
  EXPECT_EQ(S_OK, CallByName(vectorObject, L"QVector_int__append", {LongRef(&minusTwo)}));
  EXPECT_EQ(1, IntOf(Get(vectorObject, L"QVector_int__size")));
  EXPECT_EQ(QVector<int>() << -2, vector);
}

TEST_F(ContainerTest, MapAndHashKeysAndValues) {
  QMap<QString, QVariant> map;
  QString key("answer"), seventh("seven");
  QVariant value(42);
  Held mapObject = Wrap(L"QMap<QString,QVariant>", &map), keyObject = Wrap(L"QString", &key);
  Held valueObject = Wrap(L"QVariant", &value), seventhObject = Wrap(L"QString", &seventh);
  {
    Result begin = Get(mapObject, L"QMap_QString_QVariant__constBegin");
    Result end = Get(mapObject, L"QMap_QString_QVariant__constEnd");
    EXPECT_EQ(0, IntOf(Get(begin.object(), L"QMap_QString_QVariant__const_iterator_operator_NOTEQUAL",
                           {Object(end.object())})))
        << "an empty map begins at its end";
  }
  Get(mapObject, L"QMap_QString_QVariant__insert", {Object(keyObject), Object(valueObject)});
  EXPECT_EQ(42, map.value("answer").toInt());
  Result first = Get(mapObject, L"QMap_QString_QVariant__constBegin");
  EXPECT_EQ(key, TextOf(Get(first.object(), L"QMap_QString_QVariant__const_iterator_key")));
  EXPECT_EQ(value, *InstanceAs<QVariant>(Get(first.object(), L"QMap_QString_QVariant__const_iterator_value").object()));

  QHash<int, QString> hash;
  Held hashObject = Wrap(L"QHash<int,QString>", &hash);
  LONG seven = 7;
  Get(hashObject, L"QHash_int_QString__insert", {LongRef(&seven), Object(seventhObject)});
  EXPECT_EQ(seventh, hash.value(7));
  EXPECT_EQ(seventh, TextOf(Get(hashObject, L"QHash_int_QString__value", {LongRef(&seven)})));
}

}  // namespace
}  // namespace qttest
