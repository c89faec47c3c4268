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
    Result begin, end;
    EXPECT_EQ(S_OK, CallByName(container, kind.begin, {}, &begin.value));
    EXPECT_EQ(S_OK, CallByName(container, kind.end, {}, &end.value));
    for (int guard = 0; guard < 100; ++guard) {
      Result more;
      EXPECT_EQ(S_OK, CallByName(begin.object(), kind.notEqual, {Object(end.object())}, &more.value));
      if (V_I4(&more.value) == 0) break;
      Result element, next;
      EXPECT_EQ(S_OK, CallByName(begin.object(), kind.element, {}, &element.value));
      seen << TextOf(element);
      EXPECT_EQ(S_OK, CallByName(begin.object(), kind.next, {}, &next.value));
    }
    return seen;
  }

  QStringList abc_ = QStringList() << "a"
                                   << "b"
                                   << "c";
};

TEST_F(ContainerTest, ListElementsComeBackAsCopies) {
  IDispatch* list = Wrap(L"QStringList", &abc_);
  ASSERT_NE(nullptr, list);
  for (const wchar_t* member : {L"QList_QString__at", L"QList_QString__value", L"QList_QString__operator_INDEXING",
                                L"QList_QString__operator_INDEXING_2"}) {
    Result element;
    EXPECT_EQ(S_OK, CallByName(list, member, {I4(1)}, &element.value));
    QString* copy = InstanceAs<QString>(element.object());
    ASSERT_NE(nullptr, copy);
    EXPECT_EQ(QString("b"), *copy);
    EXPECT_NE(&abc_[1], copy);
    *copy = "changed";
    EXPECT_EQ(QString("b"), abc_.at(1)) << "writing the copy leaves the list alone";
  }
  Result outside;
  EXPECT_EQ(S_OK, CallByName(list, L"QList_QString__value", {I4(-1)}, &outside.value));
  EXPECT_TRUE(TextOf(outside).isEmpty());
  EXPECT_TRUE(Messages().empty()) << "value() asserts nothing";
  list->Release();
}

TEST_F(ContainerTest, HostLoopsWalkTheListWithEitherIterator) {
  IDispatch* list = Wrap(L"QList<QString>", &abc_);
  ASSERT_NE(nullptr, list);
  const IteratorKind kinds[] = {
      {L"QList_QString__begin", L"QList_QString__end", L"QList_QString__iterator_operator_NOTEQUAL",
       L"QList_QString__iterator_operator_ASTERIX", L"QList_QString__iterator_operator_PLUS_PLUS_2"},
      {L"QList_QString__constBegin", L"QList_QString__constEnd", L"QList_QString__const_iterator_operator_NOTEQUAL",
       L"QList_QString__const_iterator_operator_ASTERIX", L"QList_QString__const_iterator_operator_PLUS_PLUS"},
  };
  for (const auto& kind : kinds) EXPECT_EQ(abc_, Walk(list, kind)) << QString::fromWCharArray(kind.begin).toStdString();

  // Postfix ++ moves the bound iterator and gives the old position.
  Result it, old, now;
  ASSERT_EQ(S_OK, CallByName(list, L"QList_QString__begin", {}, &it.value));
  EXPECT_EQ(std::vector<std::wstring>{L"Iwrp_QList_QString__iterator"}, ComposedInterfaces(it.object()));
  EXPECT_EQ(S_OK, CallByName(it.object(), L"QList_QString__iterator_operator_PLUS_PLUS", {I4(0)}, &old.value));
  EXPECT_EQ(abc_.begin(), *InstanceAs<QList<QString>::iterator>(old.object()));
  EXPECT_EQ(abc_.begin() + 1, *InstanceAs<QList<QString>::iterator>(it.object()));

  // Constructor members re-initialise the bound iterator in place.
  QList<QString>::iterator* bound = InstanceAs<QList<QString>::iterator>(it.object());
  EXPECT_EQ(S_OK, CallByName(it.object(), L"QList_QString__iterator_iterator_3", {}));
  EXPECT_EQ(nullptr, bound->i);
  EXPECT_EQ(S_OK, CallByName(it.object(), L"QList_QString__iterator_iterator_2", {Object(old.object())}));
  EXPECT_EQ(abc_.begin(), *bound);
  EXPECT_EQ(bound, InstanceAs<QList<QString>::iterator>(it.object())) << "no new iterator";
  list->Release();
}

TEST_F(ContainerTest, ScalarContainersAndWholeContainerResults) {
  QList<int> numbers = QList<int>() << 1 << 2;
  IDispatch* list = Wrap(L"QList<int>", &numbers);
  ASSERT_NE(nullptr, list);
  LONG three = 3;
  EXPECT_EQ(S_OK, CallByName(list, L"QList_int__append", {LongRef(&three)}));
  EXPECT_EQ(QList<int>() << 1 << 2 << 3, numbers);
  // at() gives its element through an int** slot, which Wine's dispatch refuses.
  EXPECT_EQ(DISP_E_BADVARTYPE, CallByName(list, L"QList_int__at", {I4(2)}));

  // A reference-returning operator changes the bound list and gives a copy.
  LONG four = 4;
  Result grown;
  EXPECT_EQ(S_OK, CallByName(list, L"QList_int__operator_PLUS_ASSIGMENT", {LongRef(&four)}, &grown.value));
  EXPECT_EQ(QList<int>() << 1 << 2 << 3 << 4, numbers);
  EXPECT_EQ(numbers, *InstanceAs<QList<int>>(grown.object()));
  EXPECT_NE(&numbers, InstanceAs<QList<int>>(grown.object()));

  // Whole-container results are new containers of their declared type.
  Result set;
  EXPECT_EQ(S_OK, CallByName(list, L"QList_int__toSet", {}, &set.value));
  EXPECT_EQ(std::vector<std::wstring>{L"Iwrp_QSet_int_"}, ComposedInterfaces(set.object()));
  EXPECT_EQ(numbers.toSet(), *InstanceAs<QSet<int>>(set.object()));
  Result contains, size;
  EXPECT_EQ(S_OK, CallByName(set.object(), L"QSet_int__contains", {LongRef(&three)}, &contains.value));
  EXPECT_EQ(1, V_I4(&contains.value));
  EXPECT_EQ(S_OK, CallByName(set.object(), L"QSet_int__size", {}, &size.value));
  EXPECT_EQ(4, V_I4(&size.value));
  list->Release();

  QVector<int> vector;
  IDispatch* vectorObject = Wrap(L"QVector<int>", &vector);
  LONG minusTwo = -2;
  EXPECT_EQ(S_OK, CallByName(vectorObject, L"QVector_int__append", {LongRef(&minusTwo)}));
  Result vectorSize;
  EXPECT_EQ(S_OK, CallByName(vectorObject, L"QVector_int__size", {}, &vectorSize.value));
  EXPECT_EQ(1, V_I4(&vectorSize.value));
  EXPECT_EQ(QVector<int>() << -2, vector);
  vectorObject->Release();
}

TEST_F(ContainerTest, MapAndHashKeysAndValues) {
  QMap<QString, QVariant> map;
  IDispatch* mapObject = Wrap(L"QMap<QString,QVariant>", &map);
  ASSERT_NE(nullptr, mapObject);
  Result begin, end, differs;
  EXPECT_EQ(S_OK, CallByName(mapObject, L"QMap_QString_QVariant__constBegin", {}, &begin.value));
  EXPECT_EQ(S_OK, CallByName(mapObject, L"QMap_QString_QVariant__constEnd", {}, &end.value));
  EXPECT_EQ(S_OK, CallByName(begin.object(), L"QMap_QString_QVariant__const_iterator_operator_NOTEQUAL",
                             {Object(end.object())}, &differs.value));
  EXPECT_EQ(0, V_I4(&differs.value)) << "an empty map begins at its end";

  QString key("answer");
  QVariant value(42);
  IDispatch* keyObject = Wrap(L"QString", &key);
  IDispatch* valueObject = Wrap(L"QVariant", &value);
  Result inserted, first, firstKey, firstValue;
  EXPECT_EQ(S_OK, CallByName(mapObject, L"QMap_QString_QVariant__insert", {Object(keyObject), Object(valueObject)},
                             &inserted.value));
  EXPECT_EQ(42, map.value("answer").toInt());
  EXPECT_EQ(S_OK, CallByName(mapObject, L"QMap_QString_QVariant__constBegin", {}, &first.value));
  EXPECT_EQ(S_OK, CallByName(first.object(), L"QMap_QString_QVariant__const_iterator_key", {}, &firstKey.value));
  EXPECT_EQ(S_OK, CallByName(first.object(), L"QMap_QString_QVariant__const_iterator_value", {}, &firstValue.value));
  EXPECT_EQ(key, TextOf(firstKey));
  EXPECT_EQ(value, *InstanceAs<QVariant>(firstValue.object()));
  keyObject->Release();
  valueObject->Release();
  mapObject->Release();

  QHash<int, QString> hash;
  IDispatch* hashObject = Wrap(L"QHash<int,QString>", &hash);
  ASSERT_NE(nullptr, hashObject);
  LONG seven = 7;
  QString seventh("seven");
  IDispatch* seventhObject = Wrap(L"QString", &seventh);
  Result stored, found;
  EXPECT_EQ(S_OK, CallByName(hashObject, L"QHash_int_QString__insert", {LongRef(&seven), Object(seventhObject)},
                             &stored.value));
  EXPECT_EQ(seventh, hash.value(7));
  EXPECT_EQ(S_OK, CallByName(hashObject, L"QHash_int_QString__value", {LongRef(&seven)}, &found.value));
  EXPECT_EQ(seventh, TextOf(found));
  seventhObject->Release();
  hashObject->Release();
}

}  // namespace
}  // namespace qttest
