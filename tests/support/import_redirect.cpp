#include "support/import_redirect.h"

#include <cstring>

namespace vorn_test {

namespace {

void WriteProtected(void* target, const void* bytes, size_t size)
{
    DWORD protection = 0;
    VirtualProtect(target, size, PAGE_EXECUTE_READWRITE, &protection);
    std::memcpy(target, bytes, size);
    VirtualProtect(target, size, protection, &protection);
    FlushInstructionCache(GetCurrentProcess(), target, size);
}

}  // namespace

HMODULE VornModule()
{
    return GetModuleHandleW(L"vorn_1_0.dll");
}

void** FindImport(HMODULE module, const char* name)
{
    if (module == nullptr) return nullptr;
    auto* base = reinterpret_cast<uint8_t*>(module);
    const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
    const auto* headers = reinterpret_cast<const IMAGE_NT_HEADERS64*>(base + dos->e_lfanew);
    const IMAGE_DATA_DIRECTORY& directory =
        headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    if (directory.VirtualAddress == 0) return nullptr;
    auto* descriptor = reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(base + directory.VirtualAddress);
    for (; descriptor->Name != 0; ++descriptor) {
        auto* names = reinterpret_cast<const IMAGE_THUNK_DATA64*>(base + descriptor->OriginalFirstThunk);
        auto* slots = reinterpret_cast<IMAGE_THUNK_DATA64*>(base + descriptor->FirstThunk);
        for (; names->u1.AddressOfData != 0; ++names, ++slots) {
            if (IMAGE_SNAP_BY_ORDINAL64(names->u1.Ordinal)) continue;
            const auto* import =
                reinterpret_cast<const IMAGE_IMPORT_BY_NAME*>(base + names->u1.AddressOfData);
            if (std::strcmp(reinterpret_cast<const char*>(import->Name), name) == 0) {
                return reinterpret_cast<void**>(&slots->u1.Function);
            }
        }
    }
    return nullptr;
}

ImportRedirect::ImportRedirect(const char* name, void* replacement, HMODULE module)
    : slot_(FindImport(module, name))
{
    if (slot_ == nullptr) return;
    original_ = *slot_;
    WriteProtected(slot_, &replacement, sizeof(replacement));
}

ImportRedirect::~ImportRedirect()
{
    if (slot_ != nullptr) WriteProtected(slot_, &original_, sizeof(original_));
}

PatchedFunction::PatchedFunction(const wchar_t* module, const char* name, void* replacement)
    : code_(reinterpret_cast<uint8_t*>(GetProcAddress(GetModuleHandleW(module), name)))
{
    if (code_ == nullptr) return;
    std::memcpy(saved_, code_, kJumpSize);
    // jmp qword ptr [rip + 0], followed by the address.
    uint8_t jump[kJumpSize] = {0xFF, 0x25, 0, 0, 0, 0};
    std::memcpy(jump + 6, &replacement, sizeof(replacement));
    WriteProtected(code_, jump, kJumpSize);
}

PatchedFunction::~PatchedFunction()
{
    if (code_ != nullptr) WriteProtected(code_, saved_, kJumpSize);
}

}  // namespace vorn_test
