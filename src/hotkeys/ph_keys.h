// The keys of the PH interface, under HKEY_LOCAL_MACHINE.
#pragma once

#include "common/registry.h"

// The classic page of hot keys, and event notifications of family Type2.
#define PH_KEY              SERVICE_KEY L"\\Parameters"
#define PH_CAPABILITY       PH_KEY L"\\Capability"
#define PH_INTERFACEVERSION PH_KEY L"\\InterfaceVersion"
#define PH_CURRENTSETTING   PH_KEY L"\\CurrentSetting"
#define PH_OVERRIDESETTING  PH_KEY L"\\OverrideSetting"
#define PH_NOTIFICATION     PH_KEY L"\\Notification"

// Pages 2 and 3: values "Type12" and "Type13".
#define TYPE10_KEY             SERVICE_KEY L"\\Parameters2\\Type10"
#define TYPE10_CAPABILITY      TYPE10_KEY L"\\Capability"
#define TYPE10_CURRENTSETTING  TYPE10_KEY L"\\CurrentSetting"
#define TYPE10_OVERRIDESETTING TYPE10_KEY L"\\OverrideSetting"
#define TYPE10_NOTIFICATION    TYPE10_KEY L"\\Notification"

// Event notifications of family Type22.
#define TYPE20_KEY          SERVICE_KEY L"\\Parameters2\\Type20"
#define TYPE20_CAPABILITY   TYPE20_KEY L"\\Capability"
#define TYPE20_NOTIFICATION TYPE20_KEY L"\\Notification"
