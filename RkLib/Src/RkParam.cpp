#include "RkParam.h"

#include <new>

namespace RkLib {

namespace {

std::unique_ptr<RkParam> CloneOrThrow(const RkParam& param) {
  std::unique_ptr<RkParam> copy(param.clone());
  if (!copy) throw std::bad_alloc();
  return copy;
}

}  // namespace

RkMsg::RkMsg(const RkMsg& other) : id_(other.id_), type_(other.type_) {
  if (other.params_) {
    auto list = std::make_unique<ParamList>();
    list->reserve(other.params_->size());
    for (const auto& p : *other.params_) list->push_back(CloneOrThrow(*p));
    params_ = std::move(list);
  }
}

RkMsg& RkMsg::operator=(const RkMsg& other) {
  if (this != &other) {
    RkMsg copy(other);  // built in full before the old list goes
    *this = std::move(copy);
  }
  return *this;
}

RkMsg& RkMsg::add(const RkParam& param) { return add(CloneOrThrow(param)); }

RkMsg& RkMsg::add(std::unique_ptr<RkParam> param) {
  if (!param) return *this;
  if (!params_) params_ = std::make_unique<ParamList>();
  params_->push_back(std::move(param));
  return *this;
}

std::vector<RkString> RkMsg::paramTexts() const {
  std::vector<RkString> texts;
  if (params_)
    for (const auto& p : *params_) texts.push_back(p->text());
  return texts;
}

}  // namespace RkLib
