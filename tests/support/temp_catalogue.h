// A catalogue file in a temporary folder, filled through the public import
// from release JSON and installed as the lookup provider of both modes;
// closed and removed at the end of the scope.
#ifndef CANTRIX_TEMP_CATALOGUE_H
#define CANTRIX_TEMP_CATALOGUE_H

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "release_json.h"
#include "zelto/zelto_catalogue.h"

class TempCatalogue {
   public:
    explicit TempCatalogue(const std::vector<std::string> &releases) {
        char dir[] = "/tmp/cantrix-catalogue-XXXXXX";
        if (!mkdtemp(dir)) {
            ADD_FAILURE() << "no temporary folder";
            return;
        }
        dir_ = dir;
        {
            std::ofstream out(json());
            for (const std::string &r : releases) out << r << "\n";
        }
        EXPECT_EQ(zelto_catalogue_open(path().c_str(), ZELTO_CATALOGUE_OPEN_CREATE, &catalogue_), 0u);
        zelto_catalogue_import_report report{};
        EXPECT_EQ(zelto_catalogue_import(catalogue_, json().c_str(), nullptr, nullptr, &report), 0u);
        EXPECT_EQ(report.imported, releases.size());
        EXPECT_EQ(zelto_catalogue_install(catalogue_, 0), 0u);
    }
    ~TempCatalogue() {
        if (catalogue_) {
            EXPECT_EQ(zelto_catalogue_live_requests(catalogue_), 0u);
            EXPECT_EQ(zelto_catalogue_close(catalogue_), 0u);
        }
        std::remove(path().c_str());
        std::remove(json().c_str());
        if (!dir_.empty()) rmdir(dir_.c_str());
    }
    TempCatalogue(const TempCatalogue &) = delete;
    TempCatalogue &operator=(const TempCatalogue &) = delete;

    zelto_catalogue *get() const { return catalogue_; }
    std::string path() const { return dir_ + "/test.catalogue"; }

    // Three small albums with TOCs "150 14672 27367 41225",
    // "150 22160 40560 57220" and "150 20000 40000 60000".
    static std::vector<std::string> sample() {
        using namespace release_json;
        return {release("alb-lanterns", "Lanterns of Glass", "Mira Solenne", "2004-05-01",
                        {{{150, 14672, 27367}, 41225,
                          {{"Quiet Harbour", 193626}, {"Paper Comets", 169266}, {"The Long Thaw", 184773}}}}),
                release("alb-strasse", "Straße der Lieder", "Jürgen Hößl", "2011-03-01",
                        {{{150, 22160, 40560}, 57220,
                          {{"Abendglöckchen", 293466}, {"Über den Wiesen", 245000}, {"Mondnacht", 222000}}}}),
                release("alb-northern", "Northern Lights", "The Lanterns", "1999-01-01",
                        {{{150, 20000, 40000}, 60000,
                          {{"Aurora", 264000}, {"Polar Night", 266000}, {"Ice Field", 266000}}}})};
    }

   private:
    std::string json() const { return dir_ + "/releases.jsonl"; }

    std::string dir_;
    zelto_catalogue *catalogue_ = nullptr;
};

#endif
