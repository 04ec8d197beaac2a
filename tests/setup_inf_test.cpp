// The embedded INF by the rules of its format: every name that it refers to is there, and nothing is there
// twice.
#include <fstream>
#include <map>
#include <set>

#include "sim/windows/resources.h"
#include "tests/support/bench.h"

namespace {

struct Entry {
    std::string key;                 // before the equal sign, "" without one
    std::vector<std::string> fields; // what is parted by commas, quotes removed
};
using Section = std::vector<Entry>;

struct Inf {
    std::map<std::string, Section> sections; // by lower-case name
    std::vector<std::string> problems;
};

std::string trimmed(const std::string& text) {
    const size_t from = text.find_first_not_of(" \t");
    return from == std::string::npos ? "" : text.substr(from, text.find_last_not_of(" \t") - from + 1);
}

// Cuts a comment off and parts the rest at `mark`, both outside quotes.
std::vector<std::string> parted(const std::string& line, char mark) {
    std::vector<std::string> parts = {""};
    bool quoted = false;
    for (const char c : line) {
        if (c == '"')
            quoted = !quoted;
        else if (c == ';' && !quoted)
            break;
        if (c == mark && !quoted)
            parts.emplace_back();
        else
            parts.back() += c;
    }
    for (std::string& part : parts)
        part = trimmed(part);
    return parts;
}

std::string unquoted(const std::string& text) {
    return text.size() >= 2 && text.front() == '"' ? text.substr(1, text.size() - 2) : text;
}

Inf parse(const std::string& text) {
    Inf inf;
    Section* section = nullptr;
    for (size_t at = 0; at < text.size();) {
        const size_t end = text.find("\r\n", at);
        if (end == std::string::npos) {
            inf.problems.push_back("a line without its end");
            break;
        }
        std::string line = trimmed(text.substr(at, end - at));
        at = end + 2;
        // A backslash at its end joins a line with the next.
        while (line.ends_with("\\") && at < text.size()) {
            const size_t next = text.find("\r\n", at);
            line.pop_back();
            line += trimmed(text.substr(at, next - at));
            at = next + 2;
        }
        const std::vector<std::string> halves = parted(line, '=');
        if (halves[0].empty())
            continue;
        if (halves[0][0] == '[') {
            const std::string name = sim::lower(halves[0].substr(1, halves[0].find(']') - 1));
            if (inf.sections.count(name) != 0)
                inf.problems.push_back("twice: " + name);
            section = &inf.sections[name];
            continue;
        }
        if (section == nullptr || halves.size() > 2) {
            inf.problems.push_back("no entry: " + line);
            continue;
        }
        Entry entry;
        entry.key = halves.size() == 2 ? unquoted(halves[0]) : "";
        // A value that holds an equal sign in quotes has come through in one piece.
        for (const std::string& field : parted(halves.back(), ','))
            entry.fields.push_back(unquoted(field));
        section->push_back(entry);
    }
    return inf;
}

// Puts strings in place of %NAME%; a directory number and %% stay. What is not known is a problem.
std::string resolved(Inf& inf, const std::string& text) {
    std::string result;
    for (size_t at = 0; at < text.size();) {
        const size_t end = text[at] == '%' ? text.find('%', at + 1) : std::string::npos;
        if (end == std::string::npos) {
            result += text[at++];
            continue;
        }
        const std::string name = text.substr(at + 1, end - at - 1);
        at = end + 1;
        const Entry* string = nullptr;
        for (const Entry& entry : inf.sections["strings"]) {
            if (sim::same_text(entry.key, name))
                string = &entry;
        }
        if (string == nullptr && name.find_first_not_of("0123456789") != std::string::npos)
            inf.problems.push_back("no string: " + name);
        result += string != nullptr ? string->fields[0] : "%" + name + "%";
    }
    return result;
}

void resolve(Inf& inf) {
    for (auto& [name, section] : inf.sections) {
        for (Entry& entry : section) {
            entry.key = resolved(inf, entry.key);
            for (std::string& field : entry.fields)
                field = resolved(inf, field);
        }
    }
}

// The sections that an entry refers to, as the format has it.
std::vector<std::string> references(const std::string& section, const Entry& entry) {
    const std::string key = sim::lower(entry.key);
    if (section == "manufacturer") {
        std::vector<std::string> models;
        for (size_t i = 1; i < entry.fields.size(); ++i)
            models.push_back(entry.fields[0] + "." + entry.fields[i]);
        return models;
    }
    if (section.starts_with("models."))
        return {entry.fields[0] + ".NT", entry.fields[0] + ".NT.Services"};
    if (key == "copyfiles" || key == "delfiles" || key == "addreg" || key == "delreg")
        return entry.fields;
    if (key == "addservice")
        return {entry.fields.begin() + 2, entry.fields.end()};
    return {};
}

// The fields of all entries with this key, one text per entry.
std::vector<std::string> values(const Inf& inf, const std::string& section, const std::string& key) {
    std::vector<std::string> found;
    for (const Entry& entry : inf.sections.at(section)) {
        if (!sim::same_text(entry.key, key))
            continue;
        std::string text;
        for (const std::string& field : entry.fields)
            text += (text.empty() ? "" : ",") + field;
        found.push_back(text);
    }
    return found;
}

std::set<std::string> first_fields(const Inf& inf, const std::string& section) {
    std::set<std::string> found;
    for (const Entry& entry : inf.sections.at(section))
        found.insert(sim::lower(entry.fields[0]));
    return found;
}

using Texts = std::vector<std::string>;

class InfTest : public testing::Test {
  protected:
    Bench bench;
    Inf inf = parse(sim::embedded_inf());

    void SetUp() override { resolve(inf); }
    void TearDown() override {
        for (const std::string& problem : inf.problems)
            ADD_FAILURE() << problem;
    }
};

} // namespace

// From the sections that the system starts at, every other one is reached, and every one that is named is
// there.
TEST_F(InfTest, SectionsReferToEachOther) {
    std::set<std::string> reached;
    Texts open = {"Version",
                  "SourceDisksNames",
                  "SourceDisksFiles",
                  "DestinationDirs",
                  "Manufacturer",
                  "Strings",
                  "DefaultUninstall",
                  "DefaultUninstall.Services",
                  "zorpmdrv.Uninstall.NT",
                  "zorpmdrv.Uninstall.NT.Services"};
    while (!open.empty()) {
        const std::string name = sim::lower(open.back());
        open.pop_back();
        if (!reached.insert(name).second)
            continue;
        if (inf.sections.count(name) == 0) {
            ADD_FAILURE() << "no section: " << name;
            continue;
        }
        for (const Entry& entry : inf.sections[name]) {
            for (const std::string& target : references(name, entry))
                open.push_back(target);
        }
    }
    for (const auto& [name, section] : inf.sections) {
        EXPECT_EQ(1u, reached.count(name)) << "never reached: " << name;
        EXPECT_FALSE(section.empty()) << name;
    }
}

TEST_F(InfTest, Version) {
    EXPECT_EQ(Texts{"11"}, values(inf, "destinationdirs", "DefaultDestDir"));
    EXPECT_EQ(Texts{"$WINDOWS NT$"}, values(inf, "version", "Signature"));
    EXPECT_EQ(Texts{"System"}, values(inf, "version", "Class"));
    EXPECT_EQ(Texts{"{4d36e97d-e325-11ce-bfc1-08002be10318}"}, values(inf, "version", "ClassGuid"));
    EXPECT_EQ(Texts{"zorpmdrv.cat"}, values(inf, "version", "CatalogFile"));
    EXPECT_EQ(Texts{"Mestra"}, values(inf, "version", "Provider"));
    ASSERT_EQ(1u, values(inf, "version", "DriverVer").size());
    // The newest heading of the changes: "## 3.1.0, 2026-11-25".
    std::ifstream changes(ZORPM_SOURCE_DIR "/CHANGELOG.md");
    std::string heading;
    while (std::getline(changes, heading) && !heading.starts_with("## ")) {
    }
    const size_t comma = heading.find(", ");
    ASSERT_NE(std::string::npos, comma);
    const std::string date = heading.substr(comma + 2);
    EXPECT_EQ(date.substr(5, 2) + "/" + date.substr(8) + "/" + date.substr(0, 4) + "," +
                  heading.substr(3, comma - 3) + ".0",
              values(inf, "version", "DriverVer")[0]);
}

TEST_F(InfTest, Devices) {
    std::set<std::string> ids;
    for (const Entry& entry : inf.sections["models.ntamd64"])
        ids.insert(entry.fields[1]);
    EXPECT_EQ((std::set<std::string>{"ACPI\\VXN0268", "ACPI\\VXN0168", "ACPI\\VXN0068", "ACPI\\ZOR0068",
                                     "ACPI\\ZOR0055"}),
              ids);
    // Each is a critical device when installed, and none is left after the uninstall.
    std::set<std::string> added;
    std::set<std::string> deleted;
    for (const std::string& id : ids) {
        const std::string key =
            "HKLM,SYSTEM\\CurrentControlSet\\Control\\CriticalDeviceDatabase\\ACPI#" + id.substr(5);
        deleted.insert(key);
        added.insert(key + ",Service,,zorpmdrv");
        added.insert(key + ",ClassGUID,,{4d36e97d-e325-11ce-bfc1-08002be10318}");
    }
    const Texts adds = values(inf, "zorpmdrv.criticaldevices.addreg", "");
    const Texts deletes = values(inf, "zorpmdrv.criticaldevices.delreg", "");
    EXPECT_EQ(added, std::set<std::string>(adds.begin(), adds.end()));
    EXPECT_EQ(deleted, std::set<std::string>(deletes.begin(), deletes.end()));
}

// As the device manager and the list of services show them.
TEST_F(InfTest, NamesThatAUserSees) {
    std::string names;
    for (const Entry& entry : inf.sections["strings"])
        names += entry.key + ": " + entry.fields[0] + "\n";
    EXPECT_TRUE(names.starts_with("Manufacturer: Mestra\nDiskName: Mestra Power Management Driver Disk\n"
                                  "DeviceName: Mestra Power Management Driver\n"
                                  "SecondaryDriverName: Mestra Power Management Event Driver\n"
                                  "ServiceName: Mestra Power Management Service\n"
                                  "ServiceDescription: Handles hot keys, power events, posture and adaptive "
                                  "cooling of the notebook.\nPlatformServiceName: Mestra Platform Service\n"))
        << names;
}

// Started in each session by Windows; not any more once the device is uninstalled.
TEST_F(InfTest, HelperAtLogon) {
    const std::string run = "HKLM,SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Run,";
    EXPECT_EQ(Texts{run + "Mestra Power Management Service,,%11%\\zorpmsvc.exe -helper"},
              values(inf, "zorpmdrv.helper.addreg", ""));
    EXPECT_EQ(Texts{run + "Mestra Power Management Service"}, values(inf, "zorpmdrv.helper.delreg", ""));
}

// What the clean-up runs, to the letter. That the second service is deleted has never been seen: Wine 8 stops
// after the first DelService of a section, and nobody has run it on Windows yet.
TEST_F(InfTest, DefaultUninstall) {
    EXPECT_EQ(Texts{"zorpmdrv.UninstallFiles"}, values(inf, "defaultuninstall", "DelFiles"));
    EXPECT_EQ(1u, inf.sections["defaultuninstall"].size());
    EXPECT_EQ((Texts{"ZORPMSVC,0x200", "MPLATSVC,0x200"}),
              values(inf, "defaultuninstall.services", "DelService"));
    EXPECT_EQ((Texts{"drivers\\zorpmdrv.sys,,,1", "drivers\\pmdrvs.sys,,,1", "zorpmsvc.exe,,,1",
                     "hkinspm.dll,,,1", "zorpmctl.exe,,,1", "MPlatSvc.exe,,,1", "ZORPMDRV.inf,,,1"}),
              values(inf, "zorpmdrv.uninstallfiles", ""));
}

// Each file that the uninstall deletes (but for the INF copy) comes from a disk, and is copied to where it is
// deleted.
TEST_F(InfTest, Files) {
    std::set<std::string> sources;
    for (const Entry& entry : inf.sections["sourcedisksfiles"]) {
        EXPECT_TRUE(sources.insert(sim::lower(entry.key)).second) << entry.key;
        EXPECT_EQ(1u, values(inf, "sourcedisksnames", entry.fields[0]).size()) << entry.key;
    }
    const std::set<std::string> drivers = first_fields(inf, "zorpmdrv.driverfiles");
    const std::set<std::string> programs = first_fields(inf, "zorpmdrv.systemfiles");
    std::set<std::string> deleted;
    for (std::string file : first_fields(inf, "zorpmdrv.uninstallfiles")) {
        const bool driver = file.starts_with("drivers\\");
        if (driver)
            file = file.substr(8);
        if (file == "zorpmdrv.inf")
            continue;
        deleted.insert(file);
        EXPECT_EQ(1u, (driver ? drivers : programs).count(file)) << file;
    }
    EXPECT_EQ(sources, deleted);
    EXPECT_EQ(sources.size(), drivers.size() + programs.size());
    EXPECT_EQ(Texts{"12"}, values(inf, "destinationdirs", "zorpmdrv.DriverFiles"));
    EXPECT_EQ(Texts{"11"}, values(inf, "destinationdirs", "zorpmdrv.SystemFiles"));
    EXPECT_EQ(Texts{"11"}, values(inf, "destinationdirs", "zorpmdrv.UninstallFiles"));
}

// Who starts when, after whom, and what follows a failure. Types and starts as the platform numbers them: 0x1
// kernel driver, 0x10 a process of its own; 2 automatic, 3 on demand.
TEST_F(InfTest, StartAndRecovery) {
    const struct {
        const char* section;
        const char* type;
        const char* start;
        Texts dependencies;
    } rows[] = {
        {"zorpmdrv.service", "0x1", "3", {}},
        {"pmdrvs.service", "0x1", "2", {}},
        {"zorpmsvc.service", "0x10", "2", {"pmdrvs"}},
        {"mplatsvc.service", "0x10", "2", {}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.section);
        EXPECT_EQ(Texts{row.type}, values(inf, row.section, "ServiceType"));
        EXPECT_EQ(Texts{row.start}, values(inf, row.section, "StartType"));
        EXPECT_EQ(row.dependencies, values(inf, row.section, "Dependencies"));
    }
    // Binary: a reset period of 86400 s, no message or command, three actions: restart after 60000 ms each.
    ASSERT_EQ(Texts{"ZORPMSVC.Recovery.AddReg"}, values(inf, "zorpmsvc.service", "AddReg"));
    const std::string action = ",01,00,00,00,60,ea,00,00";
    EXPECT_EQ(
        (Texts{"HKR,,FailureActions,0x00000001,80,51,01,00,00,00,00,00,00,00,00,00,03,00,00,00,14,00,00,00" +
                   action + action + action,
               "HKR,,FailureActionsOnNonCrashFailures,0x00010001,1"}),
        values(inf, "zorpmsvc.recovery.addreg", ""));
    const Texts associated = values(inf, "zorpmdrv.install.nt.services", "AddService");
    EXPECT_EQ(
        (Texts{"zorpmdrv,0x2,zorpmdrv.Service,zorpmdrv.EventLog", "pmdrvs,,pmdrvs.Service,pmdrvs.EventLog",
               "ZORPMSVC,,ZORPMSVC.Service", "MPLATSVC,,MPLATSVC.Service"}),
        associated);
    EXPECT_EQ((Texts{"HKR,,EventMessageFile,0x00020000,%%SystemRoot%%\\System32\\IoLogMsg.dll",
                     "HKR,,TypesSupported,0x00010001,7"}),
              values(inf, "eventlog.addreg", ""));
}

TEST_F(InfTest, Services) {
    std::set<std::string> added;
    for (const Entry& entry : inf.sections["zorpmdrv.install.nt.services"]) {
        added.insert(sim::lower(entry.fields[0]));
        const std::string section = sim::lower(entry.fields[2]);
        const std::string binary = sim::lower(values(inf, section, "ServiceBinary").at(0));
        const bool driver = values(inf, section, "ServiceType") == Texts{"0x1"};
        EXPECT_EQ(driver ? "%12%\\" : "%11%\\", binary.substr(0, 5));
        EXPECT_EQ(1u, first_fields(inf, driver ? "zorpmdrv.driverfiles" : "zorpmdrv.systemfiles")
                          .count(binary.substr(5)))
            << binary;
        // The device's function driver is started for it, all else with the machine.
        EXPECT_EQ(Texts{section == "zorpmdrv.service" ? "3" : "2"}, values(inf, section, "StartType"));
        EXPECT_EQ(Texts{"1"}, values(inf, section, "ErrorControl"));
        EXPECT_EQ(1u, values(inf, section, "DisplayName").size()) << section;
    }
    EXPECT_EQ((std::set<std::string>{"zorpmdrv", "pmdrvs", "zorpmsvc", "mplatsvc"}), added);
    EXPECT_EQ(added, first_fields(inf, "zorpmdrv.uninstall.nt.services"));
    EXPECT_EQ((Texts{"HKLM,SYSTEM\\CurrentControlSet\\Services\\EventLog\\System\\zorpmdrv",
                     "HKLM,SYSTEM\\CurrentControlSet\\Services\\EventLog\\System\\pmdrvs"}),
              values(inf, "zorpmdrv.eventlog.delreg", ""));
    EXPECT_EQ((Texts{"HKLM,Software\\ZOR\\ZORPM", "HKLM,SOFTWARE\\Mestra\\MultiMode",
                     "HKLM,SOFTWARE\\Mestra\\ShortCutKey\\AppLaunch\\Ex_3C",
                     "HKLM,SOFTWARE\\Mestra\\ShortCutKey\\AppLaunch\\Ex_3E",
                     "HKLM,SOFTWARE\\Mestra\\ShortCutKey\\AppLaunch\\Ex_3B"}),
              values(inf, "zorpmdrv.product.delreg", ""));
}
