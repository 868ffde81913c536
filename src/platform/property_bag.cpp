// PropertyBag: named values and named, repeatable child bags, both kept in insertion order.
#include "vell/platform.h"

namespace VELL_2_13 {
namespace platform {

void PropertyBag::setValue(const std::string &name, Variant value) {
  for (auto &entry : m_values) {
    if (entry.first == name) {
      entry.second = std::move(value);
      return;
    }
  }
  m_values.emplace_back(name, std::move(value));
}

const Variant *PropertyBag::findValue(const std::string &name) const {
  for (const auto &entry : m_values) {
    if (entry.first == name)
      return &entry.second;
  }
  return nullptr;
}

PropertyBag &PropertyBag::addChild(const std::string &name, PropertyBag child) {
  m_children.emplace_back(name, std::move(child));
  return m_children.back().second;
}

std::vector<const PropertyBag *> PropertyBag::children(const std::string &name) const {
  std::vector<const PropertyBag *> result;
  for (const auto &entry : m_children) {
    if (entry.first == name)
      result.push_back(&entry.second);
  }
  return result;
}

bool PropertyBag::hasChildren(const std::string &name) const {
  for (const auto &entry : m_children) {
    if (entry.first == name)
      return true;
  }
  return false;
}

bool PropertyBag::operator==(const PropertyBag &other) const {
  return m_values == other.m_values && m_children == other.m_children;
}

} // namespace platform
} // namespace VELL_2_13
