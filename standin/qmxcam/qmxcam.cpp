// Stand-in for the host's camera library.
#include "qmxcam.h"

#include <mutex>
#include <optional>

namespace qmx::cam {

CEntry::CEntry(const CString& key, const CString& label, const CString& description,
               EEditLevel editLevel, const CVariant& defaultValue)
    : keyText(key),
      labelText(label),
      descriptionText(description),
      level(editLevel),
      defaultVariant(defaultValue),
      current(defaultValue) {}
const CString& CEntry::key() const noexcept { return keyText; }
const CString& CEntry::label() const noexcept { return labelText; }
const CString& CEntry::description() const noexcept { return descriptionText; }
EEditLevel CEntry::editLevel() const noexcept { return level; }
const CVariant& CEntry::defaultValue() const noexcept { return defaultVariant; }
const CVariant& CEntry::value() const noexcept { return current; }
void CEntry::setValue(const CVariant& newValue) { current = newValue; }

bool CParameters::Add(const CEntry& entry) {
    for (const CEntry& known : list) {
        if (known.key().compare(entry.key()) == 0) return false;
    }
    list.append(entry);
    return true;
}
CEntry& CParameters::operator[](const CString& key) {
    for (CEntry& entry : list) {
        if (entry.key().compare(key) == 0) return entry;
    }
    list.append(CEntry(key, "", "", EEditLevel{}, ""));
    return list[list.count() - 1];
}
const TArray<CEntry>& CParameters::entries() const noexcept { return list; }

const CProperties::SProperty* CProperties::Find(const CString& name) const noexcept {
    for (const SProperty& property : list) {
        if (property.name.compare(name) == 0) return &property;
    }
    return nullptr;
}
void CProperties::add(const CString& name, std::uint8_t, std::uint8_t, EType type, Getter getter,
                      Setter setter) {
    list.append(SProperty{name, type, std::move(getter), std::move(setter)});
}
bool CProperties::get(const CString& name, CVariant& value) const {
    const SProperty* const property = Find(name);
    return property != nullptr && property->getter(name, value);
}
bool CProperties::set(const CString& name, CVariant value) const {
    const SProperty* const property = Find(name);
    return property != nullptr && property->setter(name, std::move(value));
}
std::size_t CProperties::count() const noexcept { return list.count(); }
const CString& CProperties::nameAt(std::size_t index) const { return list[index].name; }
EType CProperties::typeAt(std::size_t index) const { return list[index].type; }

IDevice::IDevice() = default;
IDevice::~IDevice() = default;
int IDevice::GetCommID() { return 0; }
TSharedPtr<IGenICam> IDevice::GetGenICam(bool) { return {}; }
bool IDevice::GetFrameSize(std::uint32_t&) { return false; }

IInterface::IInterface() = default;
IInterface::~IInterface() = default;

IInterfaceFactory::~IInterfaceFactory() = default;

namespace {

struct SRegistration {
    CString id;
    IInterfaceFactory::CreateFunction create;
    IInterfaceFactory::DestroyFunction destroy;
};

class CInterfaceFactory final : public IInterfaceFactory {
   public:
    bool RegisterInterface(const CString& id, CreateFunction create,
                           DestroyFunction destroy) override {
        const std::lock_guard<std::mutex> guard(lock);
        if (Find(id) != nullptr) return false;
        registrations.append(SRegistration{id, create, destroy});
        return true;
    }
    // The plug-in's functions are called without the lock, because they may use the factory.
    IInterface* CreateInterface(const CString& id) override {
        const std::optional<SRegistration> found = Registration(id);
        return found ? found->create() : nullptr;
    }
    void DestroyInterface(const CString& id, IInterface* object) override {
        if (const std::optional<SRegistration> found = Registration(id)) found->destroy(object);
    }

   private:
    std::optional<SRegistration> Registration(const CString& id) {
        const std::lock_guard<std::mutex> guard(lock);
        const SRegistration* const found = Find(id);
        return found != nullptr ? std::optional<SRegistration>(*found) : std::nullopt;
    }
    const SRegistration* Find(const CString& id) const noexcept {
        for (const SRegistration& known : registrations) {
            if (known.id.compare(id) == 0) return &known;
        }
        return nullptr;
    }

    std::mutex lock;
    TArray<SRegistration> registrations;
};

}  // namespace

IInterfaceFactory& interfaceFactory() {
    static CInterfaceFactory factory;
    return factory;
}

}  // namespace qmx::cam
