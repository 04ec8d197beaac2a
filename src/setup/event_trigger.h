// IEventTrigger of the Task Scheduler 2.0 as documented: mingw-w64's taskschd.h leaves it out. Goes once it
// no longer does.
#pragma once

#include <taskschd.h>

// {D45B0167-9653-4EEF-B94F-0732CA7AF251}
constexpr IID IID_IEventTrigger = {
    0xD45B0167, 0x9653, 0x4EEF, {0xB9, 0x4F, 0x07, 0x32, 0xCA, 0x7A, 0xF2, 0x51}};

// Follows ITrigger's methods in the method table. The value queries are an interface that is not used here.
struct IEventTrigger : public ITrigger {
    virtual HRESULT STDMETHODCALLTYPE get_Subscription(BSTR* query) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_Subscription(BSTR query) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Delay(BSTR* delay) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_Delay(BSTR delay) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_ValueQueries(IUnknown** queries) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_ValueQueries(IUnknown* queries) = 0;
};
