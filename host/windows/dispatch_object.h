// A host object reached through its IDispatch: the host's Interface, its
// patient objects and stores, as a host::Object, so that the plug-in calls
// them by name as it does any other object.
#pragma once

#include <dispex.h>
#include <oaidl.h>

#include <map>
#include <memory>
#include <string>

#include "host/failure.h"
#include "host/object.h"

namespace host::windows {

class DispatchObject : public Object {
 public:
  // Holds one reference to the object for as long as it lives.
  explicit DispatchObject(IDispatch* object);
  ~DispatchObject() override;
  DispatchObject(const DispatchObject&) = delete;
  DispatchObject& operator=(const DispatchObject&) = delete;

  // Each member's id is asked once per name, of IDispatchEx without regard
  // to case where the object has it, else of GetIDsOfNames. Get reads a
  // property, Set puts one (by reference when the value is an object), Call
  // invokes a method; by-reference arguments go as VT_BYREF|VT_VARIANT and
  // come back with what the callee left in them. Every failure of the object
  // raises a Failure as FailureOf gives it.
  Value Get(std::string_view member) override;
  void Set(std::string_view member, const Value& value) override;
  Value Call(std::string_view member, Args& args) override;
  // The items of the object's _NewEnum, first to last.
  std::vector<Value> Items() override;

  // The object itself, not counted again.
  IDispatch* dispatch() const { return object_; }

 private:
  DISPID MemberId(std::string_view member);
  Value Invoke(DISPID id, WORD flags, Args& args);

  IDispatch* object_;
  IDispatchEx* object_ex_ = nullptr;  // set when the object answers it
  std::map<std::string, DISPID, std::less<>> ids_;
};

// The failure that a failed call of an IDispatch gives: an EXCEPINFO's number
// (wCode, else the number its scode gives) and description where there is
// one, else the number that late-bound callers read from the HRESULT: the low
// 16 bits of a 0x800A.... code, 438 for an unknown name or member, 13 for a
// type mismatch, 450 for a wrong count of arguments, the code itself for any
// other. Without a description of its own, a failure gets the model's
// standard one. The EXCEPINFO's texts are freed.
Failure FailureOf(HRESULT result, EXCEPINFO* info);

// The object that a value holds as an IDispatch, counted once more: nullptr
// for a value that holds none, an object of the plug-in's own raising type
// mismatch (13).
IDispatch* DispatchOf(const Value& value);

}  // namespace host::windows
