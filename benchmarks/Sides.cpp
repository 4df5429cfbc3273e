#include "Sides.h"

#include <algorithm>

namespace bench
{

Id PlainAccessList()
{
    const hid_t access = H5Pcreate(H5P_FILE_ACCESS);
    H5Pset_fclose_degree(access, H5F_CLOSE_STRONG);
    H5Pset_gc_references(access, 1);
    return Id(access);
}

void LowerHitRateThreshold(hid_t file)
{
    H5AC_cache_config_t config;
    config.version = H5AC__CURR_CACHE_CONFIG_VERSION;
    H5Fget_mdc_config(file, &config);
    config.lower_hr_threshold = 0.8;
    H5Fset_mdc_config(file, &config);
}

void WriteMark(hid_t file)
{
    const hsize_t one = 1;
    const unsigned int version = 1;
    const Id space(H5Screate_simple(1, &one, nullptr));
    const Id mark(H5Acreate2(file, kMark, H5T_NATIVE_UINT, space, H5P_DEFAULT, H5P_DEFAULT));
    H5Awrite(mark, H5T_NATIVE_UINT, &version);
}

Id PlainFile(const std::string& path, const std::string& mode)
{
    const Id access = PlainAccessList();
    if (mode == "w")
    {
        const hid_t file = H5Fcreate(path.c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, access);
        LowerHitRateThreshold(file);
        WriteMark(file);
        return Id(file);
    }
    const hid_t file = H5Fopen(path.c_str(), mode == "r" ? H5F_ACC_RDONLY : H5F_ACC_RDWR, access);
    LowerHitRateThreshold(file);
    return Id(file);
}

H5::H5File CppFile(const std::string& path, const std::string& mode)
{
    const unsigned int reading = mode == "r" ? H5F_ACC_RDONLY : H5F_ACC_RDWR;
    return H5::H5File(path, mode == "w" ? H5F_ACC_TRUNC : reading);
}

void WritePlainly(hid_t group, const char* name, hid_t type, hsize_t length, const Storage& storage, const void* values)
{
    const Id space(H5Screate_simple(1, &length, nullptr));
    const Id list(H5Pcreate(H5P_DATASET_CREATE));
    const hsize_t chunk = std::min(storage.chunk, length);
    if (chunk > 0)
    {
        H5Pset_chunk(list, 1, &chunk);
    }
    if (storage.level > 0)
    {
        H5Pset_shuffle(list);
        H5Pset_deflate(list, static_cast<unsigned int>(storage.level));
    }
    const Id set(H5Dcreate2(group, name, type, space, H5P_DEFAULT, list, H5P_DEFAULT));
    H5Dwrite(set, type, H5S_ALL, H5S_ALL, H5P_DEFAULT, values);
}

void WriteByCpp(const H5::Group& group, const char* name, const H5::DataType& type, hsize_t length,
                const Storage& storage, const void* values)
{
    H5::DSetCreatPropList list;
    const hsize_t chunk = std::min(storage.chunk, length);
    if (chunk > 0)
    {
        list.setChunk(1, &chunk);
    }
    if (storage.level > 0)
    {
        list.setShuffle();
        list.setDeflate(storage.level);
    }
    group.createDataSet(name, type, H5::DataSpace(1, &length), list).write(values, type);
}

void ReadPlainly(hid_t set, hid_t type, hsize_t start, hsize_t stride, hsize_t count, void* values)
{
    const Id file(H5Dget_space(set));
    const Id memory(H5Screate_simple(1, &count, nullptr));
    H5Sselect_hyperslab(file, H5S_SELECT_SET, &start, &stride, &count, nullptr);
    H5Dread(set, type, memory, file, H5P_DEFAULT, values);
}

void ReadByCpp(const H5::DataSet& set, const H5::DataType& type, hsize_t start, hsize_t stride, hsize_t count,
               void* values)
{
    const H5::DataSpace file = set.getSpace();
    file.selectHyperslab(H5S_SELECT_SET, &count, &start, &stride);
    set.read(values, type, H5::DataSpace(1, &count), file);
}

} // namespace bench
