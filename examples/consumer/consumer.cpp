#include <tarnwick/tarnwick.h>
#include <tarnwickhdf/tarnwickhdf.h>

#include <iostream>

namespace hdf = tarnwick::hdf;

int main(int argc, char** argv)
try
{
    const std::string filename = argc > 1 ? argv[1] : "consumer.h5";
    std::vector<double> written = {1.5, 2.5, 3.5};
    {
        const auto file = hdf::IFile::Open(filename, "w", 0);
        const auto group = file->GetRoot()->CreateGroup("measured/by hand");
        group->SetAttr("place", tarnwick::latin1_to_utf8("Z\xFCrich"));
        group->CreateArrayFromBuffer("length", written.data(), hdf::TDataType::Double, written.size(), 1);
        file->Close();
    }
    const auto file = hdf::IFile::Open(filename, "r", 0);
    const auto array = file->GetRoot()->GetArray("measured/by hand/length");
    std::vector<double> read(array->GetSize());
    array->GetToBuffer(read.data(), hdf::TDataType::Double);
    // HDF5 itself comes along with the package.
    const bool isThere = H5Lexists(file->FileID(), "measured", H5P_DEFAULT) > 0;
    const bool same = read == written && isThere;
    std::cout << file->GetRoot()->GetGroup("measured/by hand")->GetAttr("place") << (same ? ": as written\n" : "!\n");
    return same ? 0 : 1;
}
catch (const std::exception& failure)
{
    std::cerr << failure.what() << '\n';
    return 1;
}
