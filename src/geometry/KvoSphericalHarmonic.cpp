#include "geometry/KvoSphericalHarmonic.h"

namespace kvo
{

const NamedValueTable<SphericalHarmonic::Sorting>& SphericalHarmonic::GetSortingNames()
{
    return SharedNameTable<Sorting>({
        {acn, {"ACN", "AmbisonicChannelNumber", "ambisonic channel number", "acn", "increasing degrees", "ambix",
               "WYZX (ACN)"}},
        {sid, {"SID", "SingleIndexDesignation", "single index designation", "sid", "alternate degrees"}},
        {fmh, {"FMH", "Furse-Malham Harmonics", "Furse Malham Harmonics", "WXYZ (FMH)", "WXYZ (Furse-Malham)",
               "WXYZ (Furse Malham)", "WXYZ (classic FOA)", "WXYZ (classic)"}},
    });
}

const NamedValueTable<SphericalHarmonic::Norm>& SphericalHarmonic::GetNormNames()
{
    return SharedNameTable<Norm>({
        {sn3d, {"SN3D", "SchmidtSeminormalized3D", "Schmidt-Seminormalized3D", "Schmidt-Seminormalized-3D",
                "Seminormalized3D", "Seminormalized 3D"}},
        {sn2d, {"SN2D", "SchmidtSeminormalized2D", "Schmidt-Seminormalized2D", "Schmidt-Seminormalized-2D",
                "Seminormalized2D", "Seminormalized 2D"}},
        {n3d, {"N3D", "FullyNormalized3D", "Full-3D-Normalization"}},
        {n2d, {"N2D", "FullyNormalized2D", "Full-2D-Normalization"}},
        {fuma, {"FuMa", "Furse Malham"}},
        {maxN, {"MaxN", "Max-N", "Max Normalization"}},
        {unnormalized, {"unnormalized", "Earl G. Williams"}},
    });
}

int SphericalHarmonic::FindSorting(const String& name)
{
    return FindValue(GetSortingNames(), name);
}

int SphericalHarmonic::FindNorm(const String& name)
{
    return FindValue(GetNormNames(), name);
}

} // namespace kvo
