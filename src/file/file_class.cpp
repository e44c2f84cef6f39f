#include <vorn/file.hpp>

#include <memory>
#include <utility>

namespace vorn {

static_assert(sizeof(unsigned int) == sizeof(VornStatus) && sizeof(unsigned long long) == sizeof(uint64_t));

class File::FileImpl {
public:
    FileImpl() = default;
    FileImpl(const FileImpl&) = delete;
    FileImpl& operator=(const FileImpl&) = delete;
    virtual ~FileImpl()
    {
        if (handle == nullptr) return;
        try {
            VornFileClose(handle);
        } catch (...) {  // A lock that failed while regions were released: nobody is left to tell.
        }
    }

    VornFile* handle = nullptr;  // null once closed
    UniStr name;
};

File::File(const UniStr& name, VornFileOpenMode mode, VornFileAccessMode access, VBool share,
           VornSecurityDescriptor* security, const void* templateFile)
{
    auto impl = std::make_unique<FileImpl>();
    impl->handle = VornFileCreate(name.S_Str(), mode, access, share, security, templateFile);
    if (impl->handle == nullptr) throw static_cast<unsigned int>(VornGetLastError());
    impl->name = name;
    impl_ = impl.release();
}

File::~File()
{
    delete impl_;
}

unsigned int File::Close()
{
    const VornStatus status = VornFileClose(impl_->handle);
    if (status == VORN_OK) impl_->handle = nullptr;
    return status;
}

unsigned int File::Flush()
{
    return VornFileFlush(impl_->handle);
}

unsigned int File::Read(void* buffer, unsigned int count, unsigned int* bytesRead)
{
    return VornFileRead(impl_->handle, buffer, count, bytesRead);
}

unsigned int File::ReadLine(unsigned char* buffer, unsigned int size, unsigned int* length)
{
    return VornFileReadLine(impl_->handle, buffer, size, length);
}

unsigned int File::Write(const void* buffer, unsigned int count, unsigned int* bytesWritten)
{
    return VornFileWrite(impl_->handle, buffer, count, bytesWritten);
}

unsigned long long File::Seek(long long offset, VornFileSeekMethod method)
{
    return VornFileSeek(impl_->handle, offset, method);
}

unsigned long long File::GetPos()
{
    return VornFileGetPos(impl_->handle);
}

unsigned long long File::GetSize()
{
    return VornFileGetSize(impl_->handle);
}

unsigned int File::SetSize(unsigned long long size)
{
    return VornFileSetSize(impl_->handle, size);
}

unsigned int File::GetTime(VornTime* accessTime, VornTime* modifyTime, VornTime* createTime)
{
    return VornFileGetTime(impl_->handle, accessTime, modifyTime, createTime);
}

unsigned int File::SetTime(const VornTime* accessTime, const VornTime* modifyTime, const VornTime* createTime)
{
    return VornFileSetTime(impl_->handle, accessTime, modifyTime, createTime);
}

VBool File::IsEof()
{
    return VornFileIsEof(impl_->handle);
}

unsigned int File::GetNativeHandle(void** handle)
{
    return VornFileGetNativeHandle(impl_->handle, handle);
}

void* File::MapRegion(unsigned long long offset, unsigned long long length, void* address)
{
    if (impl_->handle == nullptr) {
        // Without a file the mapping would be one of the system's paging memory.
        VornSetLastError(VORN_E_INVALID_ARG);
        return nullptr;
    }
    return VornFileMapRegion(impl_->handle, offset, length, nullptr, address);
}

unsigned int File::UnmapRegion(void* view)
{
    return VornFileUnmapRegion(view);
}

unsigned int File::GetName(UniStr& name)
{
    if (impl_->handle == nullptr) return VORN_E_INVALID_ARG;
    try {
        name = impl_->name;
    } catch (...) {  // The allocator's; named, the type's information would be exported with ours.
        return VORN_E_NO_MEMORY;
    }
    return VORN_OK;
}

}  // namespace vorn
