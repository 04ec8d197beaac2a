// dacl_probe FILE - looks at the file's access list: exits 0 when it has one entry, protected against the
// folder's. Wine keeps no more of a list than it can tell by the file's mode, and may lose the bit: that is
// said, and no failure.
#include <windows.h>
#include <cstdio>

int wmain(int count, wchar_t** arguments) {
    alignas(DWORD) BYTE descriptor[4096];
    DWORD size = sizeof(descriptor);
    if (count != 2 || !GetFileSecurityW(arguments[1], DACL_SECURITY_INFORMATION, descriptor, size, &size)) {
        printf("no descriptor: %lu\n", GetLastError());
        return 1;
    }
    SECURITY_DESCRIPTOR_CONTROL control = 0;
    DWORD revision = 0;
    BOOL present = FALSE;
    BOOL defaulted = FALSE;
    ACL* list = nullptr;
    if (!GetSecurityDescriptorControl(descriptor, &control, &revision) ||
        !GetSecurityDescriptorDacl(descriptor, &present, &list, &defaulted) || !present || list == nullptr) {
        printf("no access list\n");
        return 1;
    }
    printf("access list: %u entries, control 0x%x: %s\n", list->AceCount, control,
           (control & SE_DACL_PROTECTED) != 0 ? "protected" : "protection not kept here");
    return 0;
}
