// COM for the doubles that stand behind it: apartments, object lifetimes, strings, and how a class joins.
#pragma once

#include <objbase.h>
#include <oleauto.h>

#include "sim/machine/machine.h"

namespace sim {

constexpr IID UNKNOWN_INTERFACE = {0, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};

// What a double adds to its interface. An object belongs to the apartment that it was made in, and stays
// known after its last release, so that a later use is seen.
struct ComObject {
    std::string name;
    Process* process = nullptr;
    DWORD apartment = 0; // thread id of a single-threaded one, 0 the multithreaded one
    int references = 1;

    virtual ~ComObject() = default;
};

// First line of a method: a use on the wrong thread, after the last release or after the end of COM is a
// violation.
void com_use(const ComObject& object, const char* method);
#define COM_CALL(object)                                                                                     \
    do {                                                                                                     \
        ::sim::com_use((object), __func__);                                                                  \
        SIM_CALL(E_FAIL, ERROR_GEN_FAILURE);                                                                 \
    } while (0)

ULONG com_add_reference(ComObject& object);
ULONG com_release(ComObject& object);
// Puts a new object under the calling thread's apartment; the process owns its memory.
void com_adopt(std::unique_ptr<ComObject> object, std::string name);

// Whether the object is of this interface by its name.
bool com_is_named(const ComObject& object, REFIID wanted);

// IUnknown of a double, which can be asked for its own interface too, and for one more, `also`.
template <class Interface> struct ComDouble : Interface, ComObject {
    const IID* also = nullptr;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID wanted, void** object) override {
        COM_CALL(*this);
        *object = nullptr;
        if (wanted != UNKNOWN_INTERFACE && !com_is_named(*this, wanted) &&
            (also == nullptr || wanted != *also))
            return E_NOINTERFACE;
        *object = static_cast<Interface*>(this);
        com_add_reference(*this);
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override {
        com_use(*this, "AddRef");
        return com_add_reference(*this);
    }
    ULONG STDMETHODCALLTYPE Release() override {
        com_use(*this, "Release");
        return com_release(*this);
    }
};

// Makes a double with one reference, for the caller to hand out.
template <class Double> Double* com_make(const char* name) {
    auto made = std::make_unique<Double>();
    Double* object = made.get();
    com_adopt(std::move(made), name);
    return object;
}

// A COM class: what its program id is (may be null), whether it is registered now, and how an instance is
// made.
struct ComClass {
    CLSID id;
    const char* program;
    bool (*registered)();
    DWORD contexts; // CLSCTX_* that it can serve
    HRESULT (*create)(REFIID wanted, void** object);
};
struct ComClasses {
    ComClasses(const ComClass& added);
};

// The text of a string argument, "" for null; what is no living string of the process is a violation.
std::string bstr_text(BSTR text, const char* call);
std::string variant_text(const VARIANT& variant, const char* call);

// What a process holds now: references of living objects, strings, initialisations not yet undone.
size_t com_references(Process* process);
size_t com_strings(Process* process);
size_t com_initialisations(Process* process);

} // namespace sim
