#include <CL/cl_ext.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "engine_test.h"
#include "util/formatter.h"

namespace lumivert {
namespace {

using testing::ContainsRegex;
using testing::ElementsAre;
using testing::IsSupersetOf;

using FormatterTest = EngineTest;

TEST_F(FormatterTest, OpensTheDeviceInOrderAndReadsTheBuildIdentifier) {
    const Formatter engine(6, 4, NORMAL);
    EXPECT_THAT(spy::calls_of({"clGetPlatformIDs", "clGetDeviceIDs", "clCreateContext", "clCreateCommandQueue"}),
                ElementsAre("clGetPlatformIDs", "clGetDeviceIDs " + std::to_string(CL_DEVICE_TYPE_GPU),
                            "clCreateContext", "clCreateCommandQueue " + std::to_string(CL_QUEUE_PROFILING_ENABLE)));
    EXPECT_EQ(log.texts().back(),
              "I [Formatter] buildNumberString = brand/product/device:12/ABC1.230101.001/AB12CD34:user/release-keys "
              "mAPSoftwareVersion = AB12CD34");
}

TEST_F(FormatterTest, SurvivesWithoutADevice) {
    spy::fail("clGetDeviceIDs", CL_DEVICE_NOT_FOUND);
    { const Formatter engine(6, 4, NORMAL); }
    for (const int tag : {68, 70, 72})
        EXPECT_EQ(log.count("E [Formatter] failed ! error , Line number is " + std::to_string(tag) + " "), 1);
    EXPECT_THAT(log.texts(), IsSupersetOf({failure_line("~Formatter", "CL_INVALID_PROGRAM", 172),
                                           failure_line("~Formatter", "CL_INVALID_COMMAND_QUEUE", 174),
                                           failure_line("~Formatter", "CL_INVALID_CONTEXT", 175),
                                           failure_line("~Formatter", "CL_INVALID_DEVICE", 176)}));
    EXPECT_EQ(spy::count("clReleaseDevice"), 2);

    spy::fail("clGetPlatformIDs", CL_OUT_OF_HOST_MEMORY);
    { const Formatter engine(6, 4, NORMAL); }
    EXPECT_EQ(log.count("E [Formatter] failed ! error , Line number is 67 "), 1);
}

TEST_F(FormatterTest, GivesBackInOrderAndReportsWhatWasNeverThere) {
    {
        Formatter engine(6, 4, NORMAL);
        engine.compileprogram();
        engine.make_kernel("rgba8888_to_nv12");
        engine.mWorkHost0 = aligned_alloc(128, 128);
        engine.mWorkMem0 = engine.import_buffer(engine.mContext, engine.mWorkHost0, 128, CL_MEM_READ_WRITE);
        engine.mFrameTimes = {1.5, 2.5, 5.0};
        engine.mFds = {memfd_create("fd", 0), -1};
        engine.mIonHandles = {7};
        engine.mMappings = {{mmap(nullptr, 4096, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0), 4096},
                            {reinterpret_cast<void*>(1), 1}};
        engine.mSampler = clCreateSampler(engine.mContext, CL_FALSE, CL_ADDRESS_CLAMP, CL_FILTER_NEAREST, nullptr);
        EXPECT_EQ(log.count("E [Formatter] error 85"), access("/dev/ion", R_OK) == 0 ? 0 : 1);
        if (engine.mIonFd >= 0) close(engine.mIonFd);
        engine.mIonFd = -1;
        log.clear();
        spy::reset();
        spy::fail("clReleaseKernel", CL_OUT_OF_RESOURCES, 1, 2);
        spy::fail("clReleaseSampler", CL_INVALID_SAMPLER, 1, 2);
    }
    EXPECT_THAT(spy::calls_of({"clReleaseKernel", "clReleaseMemObject", "clReleaseSampler", "clReleaseProgram",
                               "clReleaseCommandQueue", "clReleaseContext", "clReleaseDevice"}),
                ElementsAre("clReleaseKernel", "clReleaseKernel", "clReleaseMemObject", "clReleaseSampler",
                            "clReleaseSampler", "clReleaseProgram", "clReleaseCommandQueue", "clReleaseContext",
                            "clReleaseDevice"));
    EXPECT_THAT(log.texts(),
                ElementsAre("I ~Formatter() vendor entry", "E [~Formatter] error is Invalid argument line is 113",
                            "E [~Formatter] error is Bad file descriptor line is 122",
                            testing::EndsWith(" line is 137"), // the reason is another under an emulator
                            "E [~Formatter] error is Bad file descriptor line is 143",
                            failure_line("~Formatter", "CL_OUT_OF_RESOURCES", 149), "I framecount is 3",
                            "I stat info total converting time is 3.000000 ms",
                            failure_line("~Formatter", "CL_INVALID_SAMPLER", 170), "I ~Formatter() exit"));
}

TEST_F(FormatterTest, ReadsDevicePropertiesAndExtensions) {
    const Formatter engine(6, 4, NORMAL);
    EXPECT_NE(engine.getDeviceInfoProp(CL_DEVICE_NAME), "");
    EXPECT_EQ(spy::calls().back().detail, std::to_string(CL_DEVICE_NAME) + " 1008");
    EXPECT_TRUE(engine.check_extension_support("l_khr_byte_addressable_st")); // inside a longer name
    EXPECT_FALSE(engine.check_extension_support("cl_no_such_extension"));
    spy::fail("clGetDeviceInfo", CL_INVALID_VALUE, 1, 2);
    EXPECT_EQ(engine.getDeviceInfoProp(CL_DEVICE_NAME), "");
    EXPECT_FALSE(engine.check_extension_support(""));
    EXPECT_EQ(log.texts().back(), "E [check_extension_support] error 741");
}

// ---- imported buffers ---------------------------------------------------------------------------------------------

class Registry : public EngineTest {
protected:
    static std::shared_ptr<exported_memory> key(int fd, unsigned size) {
        return std::make_shared<exported_memory>(fd, size);
    }

    Formatter engine{6, 4, NORMAL};
    Plane plane{4096};
    int fd = plane.handle().handle;
};

TEST_F(Registry, ImportsADescriptorOnceAndKnowsItByItsNumberAlone) {
    auto map = engine.mImagePair0.first;
    const cl_mem first = engine.find_imported_buffer(map, key(fd, 1));
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(engine.find_imported_buffer(map, key(fd, 4096)), first);
    auto other = engine.mImagePair0.second;
    EXPECT_NE(engine.find_imported_buffer(other, key(fd, 128)), first);
    EXPECT_THAT(spy::calls_of({"clImportMemoryARM"}),
                ElementsAre("clImportMemoryARM dma_buf 128", "clImportMemoryARM dma_buf 128"));
    EXPECT_EQ(map->begin()->first.get_size(), 1U);
    EXPECT_TRUE(exported_memory(-1, 9) < exported_memory(3, 1));
    EXPECT_FALSE(exported_memory(3, 1) < exported_memory(3, 2));
}

TEST_F(Registry, ForgetsAFailedImport) {
    auto map = engine.mImagePair0.first;
    log.clear();
    spy::fail("clImportMemoryARM", CL_INVALID_VALUE);
    EXPECT_EQ(engine.find_imported_buffer(map, key(fd, 129)), nullptr);
    EXPECT_THAT(log.texts(), ElementsAre(failure_line("import_buffer", "CL_INVALID_VALUE", 318), "E import failed"));
    EXPECT_EQ(spy::count("clImportMemoryARM"), 1); // an object's code comes with it: no second call
    EXPECT_TRUE(map->empty());
    EXPECT_NE(engine.find_imported_buffer(map, key(fd, 129)), nullptr);
    EXPECT_EQ(spy::calls_of({"clImportMemoryARM"}).back(), "clImportMemoryARM dma_buf 256");

    spy::fail("clImportMemoryARM", CL_INVALID_VALUE);
    EXPECT_EQ(engine.import_buffer(engine.mContext, plane.bytes(), 128, CL_MEM_READ_WRITE), nullptr);
    EXPECT_EQ(log.texts().back(), failure_line("import_buffer", "CL_INVALID_VALUE", 294));
}

TEST_F(Registry, TracesByItsBits) {
    auto map = engine.mImagePair0.first;
    debug_level = 6;
    log.clear();
    engine.find_imported_buffer(map, key(fd, 100));
    engine.find_imported_buffer(map, key(fd, 100));
    list_entries(map);
    const std::string number = std::to_string(fd);
    EXPECT_THAT(
        log.texts(),
        ElementsAre("D find_imported_buffer entry",
                    "D there is not in table key.get_handle() is " + number + " key.get_size() is 100",
                    ContainsRegex("^D cl mem ptr 0x.* is pushed!$"), "D find_imported_buffer exit",
                    "D find_imported_buffer entry", "D it is in my table!",
                    ContainsRegex("^D input_p010 buffer obj is 0x"), "D find_imported_buffer exit",
                    ContainsRegex("^D print out exported_memory handle is " + number + " size is 100 cl_mem 0x")));
    log.clear();
    debug_level = 2;
    engine.delete_pair_images(engine.mImagePair0);
    EXPECT_THAT(log.texts(), ElementsAre(ContainsRegex("^D Release pair mem object is 0x")));
    EXPECT_TRUE(map->empty());
    log.clear();
    engine.delete_pair_images(engine.mImagePair0);
    EXPECT_TRUE(log.texts().empty());
    debug_level = 1;
}

TEST_F(Registry, ReleasesOnlyWhatIsAlive) {
    const cl_mem mem = engine.import_buffer(engine.mContext, fd, 4096, CL_MEM_READ_WRITE);
    engine.delete_mem_object(nullptr);
    spy::fail("clGetMemObjectInfo", CL_OUT_OF_RESOURCES);
    engine.delete_mem_object(mem);
    EXPECT_EQ(spy::count("clReleaseMemObject"), 0);
    spy::fail("clReleaseMemObject", CL_OUT_OF_RESOURCES, 1, 2);
    engine.delete_mem_object(mem);
    EXPECT_EQ(log.texts().back(), failure_line("delete_mem_object", "CL_OUT_OF_RESOURCES", 848));
    engine.delete_mem_object(mem);
    EXPECT_EQ(spy::count("clReleaseMemObject"), 3);
    engine.delete_mem_object(mem); // gone: the driver refuses the query
    EXPECT_EQ(spy::count("clReleaseMemObject"), 3);
}

TEST_F(Registry, GivesImagesARowPitchForRgbaOnly) {
    const cl_mem mem = engine.import_buffer(engine.mContext, fd, 4096, CL_MEM_READ_WRITE);
    const struct {
        unsigned order, selector, width, alignment;
        std::size_t type, pitch;
    } cases[] = {
        {CL_RGBA, 1, 1000, 64, CL_UNORM_INT8, 4096},
        {CL_RGBA, 2, 3, 1, CL_UNORM_INT16, 12},
        {CL_R, 2, 1000, 64, CL_UNORM_INT16, 0},
        {CL_RG, 0, 1000, 64, CL_UNORM_INT8, 0},
    };
    for (const auto& c : cases) {
        spy::fail("clCreateImage", CL_INVALID_IMAGE_SIZE); // PoCL makes none over buffers: what is asked for counts
        EXPECT_EQ(engine.create_image_from_buffer(engine.mContext, mem, 1, c.width, CL_MEM_READ_WRITE, c.order,
                                                  c.alignment, c.selector),
                  nullptr);
        EXPECT_EQ(spy::calls().back().detail, std::to_string(c.type) + " " + std::to_string(c.pitch));
        EXPECT_EQ(log.texts().back(), failure_line("create_image_from_buffer", "CL_INVALID_IMAGE_SIZE", 366));
    }
    clReleaseMemObject(mem);
}

} // namespace
} // namespace lumivert
