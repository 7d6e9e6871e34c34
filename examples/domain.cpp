// Arrays as C++ codes hold them: a mesh domain class in the style of
// shock-hydrodynamics proxy applications, with per-element fields in
// std::vector members, region counts in a `new`ed array whose length is
// another member (`*domain.m_regElemSize@domain.m_numReg`), and members
// that are no array of numbers: a vector of vectors, a vector of
// structures, of an enumeration, of pointers, a vector<bool>, and a vector
// nothing has been put in yet.
//
// The program writes its reference values, then stops once, in main, at
// the line marked "arraylens-break: main".
#include <cmath>
#include <cstdio>
#include <vector>

#include "reference.h"

extern "C" void arraylens_break(const char* where) {
    static volatile int stops;
    stops = stops + 1;
    (void)where;
}

typedef int Index_t;
typedef double Real_t;

enum Material { Gas, Liquid, Solid };

struct Node {
    Real_t x, y, z;
    Real_t mass;
};

class Domain {
public:
    Domain(Index_t numElem, Index_t numReg) : m_numElem(numElem), m_numReg(numReg) {
        m_e.resize(numElem);
        m_p.resize(numElem);
        m_regElemSize = new Index_t[numReg]();
        m_regElemList.resize(numReg);
        m_elemActive.resize(numElem);
        m_nodes.resize(numElem + 1);
        // Elements go to regions round robin with a skew, so the regions
        // differ in size.
        for (Index_t i = 0; i < numElem; ++i) {
            const Index_t r = (i * i + 3 * i) % numReg;
            m_regElemSize[r]++;
            m_regElemList[r].push_back(i);
            m_e[i] = 1.0e5 * std::exp(-0.01 * i) + 10.0 * r;
            m_p[i] = (2.0 / 3.0) * m_e[i] * 1.0e-3;
            m_elemActive[i] = m_e[i] > 5.0e4;
        }
        for (Index_t n = 0; n <= numElem; ++n)
            m_nodes[n] = Node{1.0 * n, 0.5 * n, 0.0, 1.0 + n};
        for (Index_t i = 0; i < numElem; ++i)
            m_material.push_back(m_e[i] > 5.0e4 ? Solid : (m_e[i] > 1.0e4 ? Liquid : Gas));
        m_fields = {m_e.data(), m_p.data()};
    }
    ~Domain() { delete[] m_regElemSize; }
    Domain(const Domain&) = delete;
    Domain& operator=(const Domain&) = delete;

    Index_t m_numElem;
    Index_t m_numReg;
    Index_t* m_regElemSize;                          // elements per region
    std::vector<std::vector<Index_t>> m_regElemList; // elements of each region
    std::vector<Real_t> m_e;                         // energy
    std::vector<Real_t> m_p;                         // pressure
    std::vector<bool> m_elemActive;
    std::vector<Node> m_nodes;
    std::vector<Material> m_material;
    std::vector<Real_t*> m_fields;   // the element fields, for loops over all of them
    std::vector<Real_t> m_dtHistory; // time steps taken: none yet
};

int main(int argc, char** argv) {
    FILE* ref = ref_open(argc, argv, "domain_cpp", "c++");
    Domain domain(125, 11);

    std::fprintf(ref, "stop=main\n");
    ref_array(ref, "m_e", "domain.m_e", REF_DOUBLE, domain.m_e.data(), domain.m_e.size(), "0:124");
    ref_elem(ref, "m_e", "[0]", REF_DOUBLE, &domain.m_e[0]);
    ref_elem(ref, "m_e", "[64]", REF_DOUBLE, &domain.m_e[64]);
    ref_elem(ref, "m_e", "[124]", REF_DOUBLE, &domain.m_e[124]);
    ref_array(ref, "m_e_start", "*domain.m_e._M_impl._M_start@domain.m_e.size()", REF_DOUBLE,
              domain.m_e.data(), domain.m_e.size(), "0:124");
    ref_elem(ref, "m_e_start", "[100]", REF_DOUBLE, &domain.m_e[100]);
    ref_array(ref, "m_p", "domain.m_p", REF_DOUBLE, domain.m_p.data(), domain.m_p.size(), "0:124");
    ref_elem(ref, "m_p", "[7]", REF_DOUBLE, &domain.m_p[7]);
    ref_array(ref, "regsize", "*domain.m_regElemSize@domain.m_numReg", REF_INT,
              domain.m_regElemSize, (size_t)domain.m_numReg, "0:10");
    ref_elem(ref, "regsize", "[0]", REF_INT, &domain.m_regElemSize[0]);
    ref_elem(ref, "regsize", "[10]", REF_INT, &domain.m_regElemSize[10]);
    const std::vector<Index_t>& region = domain.m_regElemList[4];
    char bounds[32];
    std::snprintf(bounds, sizeof bounds, "0:%zu", region.size() - 1);
    ref_array(ref, "region4", "domain.m_regElemList[4]", REF_INT, region.data(), region.size(),
              bounds);
    ref_elem(ref, "region4", "[0]", REF_INT, &region[0]);
    std::fprintf(ref, "counts.m_numReg=%d\n", domain.m_numReg);
    std::fprintf(ref, "counts.m_e=%zu\n", domain.m_e.size());
    std::fprintf(ref, "counts.m_dtHistory=%zu\n", domain.m_dtHistory.size());
    ref_close(ref);

    arraylens_break("main"); // arraylens-break: main

    Real_t total = 0;
    for (Real_t e : domain.m_e)
        total += e;
    std::printf("total energy %g in %d regions\n", total, domain.m_numReg);
    return 0;
}
