// The root of the sample's object hierarchy; like an application framework's
// base object it is never wrapped itself.
#pragma once

#include "kwsample/SString.h"

class KWSAMPLE_API SObject {
 public:
  explicit SObject(SObject* parent = 0);
  virtual ~SObject();
  SObject* parent() const { return m_parent; }
  SString objectName() const;
  void setObjectName(const SString& name);

 protected:
  SObject* m_parent;
  SString m_name;
};
