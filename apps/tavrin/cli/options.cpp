#include "cli/options.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>

#include "pipeline/app_error.h"

namespace tavrin {

namespace {

AppError usage(const std::string& msg) { return AppError(kExitUsage, msg); }

double parseReal(const std::string& opt, const std::string& v, double lo, double hi) {
    errno = 0;
    char* end = nullptr;
    const double d = std::strtod(v.c_str(), &end);
    if (v.empty() || *end != '\0' || errno == ERANGE || !std::isfinite(d) || d < lo || d > hi) {
        std::ostringstream m;
        m << opt << ": expected a number from " << lo << " to " << hi << ", got '" << v << "'";
        throw usage(m.str());
    }
    return d;
}

int parseInt(const std::string& opt, const std::string& v, long lo, long hi) {
    errno = 0;
    char* end = nullptr;
    const long n = std::strtol(v.c_str(), &end, 10);
    if (v.empty() || *end != '\0' || errno == ERANGE || n < lo || n > hi)
        throw usage(opt + ": expected a whole number from " + std::to_string(lo) + " to " + std::to_string(hi) +
                    ", got '" + v + "'");
    return int(n);
}

bool parseBool(const std::string& opt, const std::string& v) {
    if (v == "yes" || v == "true" || v == "on" || v == "1") return true;
    if (v == "no" || v == "false" || v == "off" || v == "0") return false;
    throw usage(opt + ": expected yes or no, got '" + v + "'");
}

int parseSampling(const std::string& opt, const std::string& v) {
    if (v == "420") return 0;
    if (v == "422") return 2;
    if (v == "444") return 5;
    if (v.size() == 1 && v[0] >= '0' && v[0] <= '5') return v[0] - '0';
    throw usage(opt + ": expected 420, 422, 444 or a mode from 0 to 5, got '" + v + "'");
}

// Settings that the command line and a parameter file share. Each setter
// takes the option's name (for messages) and its value.
using Setter = std::function<void(Options&, const std::string&, const std::string&)>;

std::map<std::string, Setter> tunables(Command cmd) {
    std::map<std::string, Setter> t;
    t["space-sigma"] = [](Options& o, const std::string& n, const std::string& v) {
        o.settings.detect.record.dSpaceSigma = parseReal(n, v, 0.1, 20);
    };
    t["range-sigma"] = [](Options& o, const std::string& n, const std::string& v) {
        o.settings.detect.record.dRangeSigma = parseReal(n, v, 0.1, 255);
    };
    t["min-width"] = [](Options& o, const std::string& n, const std::string& v) {
        o.settings.detect.record.iMinWidth = parseInt(n, v, 1, 20000);
    };
    t["min-height"] = [](Options& o, const std::string& n, const std::string& v) {
        o.settings.detect.record.iMinHeight = parseInt(n, v, 1, 20000);
    };
    t["min-area"] = [](Options& o, const std::string& n, const std::string& v) {
        o.settings.detect.record.iMinArea = parseInt(n, v, 1, 100000000);
    };
    t["min-fill"] = [](Options& o, const std::string& n, const std::string& v) {
        o.settings.detect.record.dMinFillRatio = parseReal(n, v, 0, 1);
    };
    t["max-high-attr"] = [](Options& o, const std::string& n, const std::string& v) {
        o.settings.detect.record.dMaxHighAttrRatio = parseReal(n, v, 0, 1);
    };
    t["page-ratio"] = [](Options& o, const std::string& n, const std::string& v) {
        o.settings.detect.record.dPictPageRatio = parseReal(n, v, 0, 1);
    };
    t["label-passes"] = [](Options& o, const std::string& n, const std::string& v) {
        o.settings.detect.labelPassMax = parseInt(n, v, 1, 64) - 1;
    };
    t["attr"] = [](Options& o, const std::string& n, const std::string& v) {
        o.settings.detect.attributes = parseBool(n, v);
    };
    t["threads"] = [](Options& o, const std::string& n, const std::string& v) {
        o.settings.detect.parallel = parseInt(n, v, 1, 2) == 2;
    };
    if (cmd == Command::Compress) {
        t["bg-dpi"] = [](Options& o, const std::string& n, const std::string& v) {
            o.settings.backgroundDpi = parseReal(n, v, 10, 1200);
        };
        t["bg-quality"] = [](Options& o, const std::string& n, const std::string& v) {
            o.settings.backgroundQuality = parseInt(n, v, 1, 100);
        };
        t["flatten"] = [](Options& o, const std::string& n, const std::string& v) {
            o.settings.flatten = parseInt(n, v, 0, 255);
        };
        t["picture-dpi"] = [](Options& o, const std::string& n, const std::string& v) {
            o.settings.picture.minDpi = parseReal(n, v, 10, 1200);
        };
        t["picture-quality"] = [](Options& o, const std::string& n, const std::string& v) {
            o.settings.picture.quality = parseInt(n, v, 0, 100);
        };
        t["picture-psnr"] = [](Options& o, const std::string& n, const std::string& v) {
            o.settings.picture.targetPsnr = parseReal(n, v, 10, 60);
        };
        t["mask-dpi"] = [](Options& o, const std::string& n, const std::string& v) {
            o.settings.text.maskDpi = parseReal(n, v, 50, 1200);
            o.settings.text.smallTextDpi = 0;  // the resolution asked for, whatever the type's size
        };
        t["chroma-offset"] = [](Options& o, const std::string& n, const std::string& v) {
            o.settings.chromaOffset = parseInt(n, v, -99, 99);
        };
        t["sampling"] = [](Options& o, const std::string& n, const std::string& v) {
            o.settings.sampling = parseSampling(n, v);
        };
        t["flate"] = [](Options& o, const std::string& n, const std::string& v) {
            o.settings.flate = parseBool(n, v);
        };
        t["graphics"] = [](Options& o, const std::string& n, const std::string& v) {
            if (v != "layers" && v != "image") throw usage(n + ": expected layers or image, got '" + v + "'");
            o.settings.layeredGraphics = v == "layers";
        };
        t["colours"] = [](Options& o, const std::string& n, const std::string& v) {
            o.settings.text.maxColours = parseInt(n, v, 1, 8);
        };
        t["min-contrast"] = [](Options& o, const std::string& n, const std::string& v) {
            o.settings.text.minContrast = parseInt(n, v, 1, 255);
        };
        t["detect"] = [](Options& o, const std::string& n, const std::string& v) {
            o.settings.detectPictures = parseBool(n, v);
        };
    }
    return t;
}

// Presets: settings for other trade-offs, applied before a parameter file
// and the options, which override them.
const std::map<std::string, std::vector<std::pair<std::string, std::string>>>& presets() {
    static const std::map<std::string, std::vector<std::pair<std::string, std::string>>> p = {
        {"default", {}},
        // Pictures close to the scan, at a larger file.
        {"pictures",
         {{"picture-psnr", "38"}, {"picture-dpi", "200"}, {"mask-dpi", "300"}, {"bg-dpi", "75"}, {"bg-quality", "40"}}},
        // The smallest file that still reads well.
        {"archive",
         {{"picture-psnr", "30"}, {"picture-dpi", "100"}, {"mask-dpi", "200"}, {"bg-dpi", "30"}, {"bg-quality", "25"}}},
    };
    return p;
}

std::string trim(const std::string& s) {
    const size_t a = s.find_first_not_of(" \t\r"), b = s.find_last_not_of(" \t\r");
    return a == std::string::npos ? "" : s.substr(a, b - a + 1);
}

void applyParamsFile(Options& o, const std::string& path, const std::map<std::string, Setter>& t) {
    std::ifstream in(path);
    if (!in) throw AppError(kExitInput, path + ": cannot open the parameter file: " + std::strerror(errno));
    std::string line;
    for (int no = 1; std::getline(in, line); ++no) {
        line = trim(line.substr(0, line.find('#')));
        if (line.empty()) continue;
        const size_t eq = line.find('=');
        const std::string where = path + ":" + std::to_string(no);
        if (eq == std::string::npos) throw usage(where + ": expected 'name = value'");
        const std::string key = trim(line.substr(0, eq)), value = trim(line.substr(eq + 1));
        const auto it = t.find(key);
        if (it == t.end()) throw usage(where + ": unknown parameter '" + key + "'");
        it->second(o, where + ": " + key, value);
    }
}

}  // namespace

std::string stemOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    std::string base = slash == std::string::npos ? path : path.substr(slash + 1);
    const size_t dot = base.rfind('.');
    if (dot != std::string::npos && dot > 0) base = base.substr(0, dot);
    return base.empty() ? "page" : base;
}

Options parseOptions(Command command, const std::vector<std::string>& args) {
    Options o;
    o.command = command;
    const auto t = tunables(command);
    // A preset, then a parameter file, are applied first, so that options
    // override them wherever they stand.
    for (size_t i = 0; command == Command::Compress && i < args.size(); ++i)
        if (args[i] == "--preset" || args[i].compare(0, 9, "--preset=") == 0) {
            const std::string name = args[i].size() > 8 ? args[i].substr(9) : i + 1 < args.size() ? args[i + 1] : "";
            const auto it = presets().find(name);
            if (it == presets().end()) throw usage("--preset: expected default, pictures or archive, got '" + name + "'");
            for (const auto& kv : it->second) t.at(kv.first)(o, "--preset " + name, kv.second);
        }
    for (size_t i = 0; i < args.size(); ++i)
        if (args[i] == "--params") {
            if (i + 1 >= args.size()) throw usage("--params: missing file name");
            applyParamsFile(o, args[i + 1], t);
        }
    const std::map<std::string, std::string> flags = {
        {"--no-attr", "attr=no"}, {"--serial", "threads=1"}, {"--flate", "flate=yes"},
        {"--no-detect", "detect=no"}};
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        auto value = [&](const std::string& opt) -> std::string {
            if (i + 1 >= args.size()) throw usage(opt + ": missing value");
            return args[++i];
        };
        if (a.size() > 2 && a.compare(0, 2, "--") == 0) {
            std::string opt = a, inlineValue;
            bool hasInline = false;
            const size_t eq = a.find('=');
            if (eq != std::string::npos) opt = a.substr(0, eq), inlineValue = a.substr(eq + 1), hasInline = true;
            auto get = [&]() { return hasInline ? inlineValue : value(opt); };
            const auto flag = flags.find(opt);
            if (flag != flags.end() && !hasInline) {
                const std::string& kv = flag->second;
                const auto it = t.find(kv.substr(0, kv.find('=')));
                if (it != t.end()) {
                    it->second(o, opt, kv.substr(kv.find('=') + 1));
                    continue;
                }
            }
            const auto it = t.find(opt.substr(2));
            if (it != t.end()) {
                it->second(o, opt, get());
            } else if (opt == "--params" || (opt == "--preset" && command == Command::Compress)) {
                get();  // applied above
            } else if (opt == "--dpi") {
                o.dpi = parseReal(opt, get(), 10, 10000);
            } else if (opt == "--tables") {
                o.tablesFile = get();
            } else if (opt == "--dump") {
                o.settings.detect.dumpDir = get();
                if (o.settings.detect.dumpDir.empty()) throw usage("--dump: empty directory name");
            } else if (opt == "--quiet" && !hasInline) {
                o.quiet = true;
            } else if (command == Command::Detect && opt == "--overlay") {
                o.overlayPath = get();
            } else if (command == Command::Detect && opt == "--json") {
                o.jsonPath = get();
            } else if (command == Command::Compress && opt == "--output") {
                o.outputPath = get();
            } else if (command == Command::Compress && opt == "--explain" && !hasInline) {
                o.explain = true;
            } else {
                throw usage("unknown option '" + a + "' (see tavrin " +
                            std::string(command == Command::Detect ? "detect" : "compress") + " --help)");
            }
        } else if (command == Command::Compress && a == "-o") {
            o.outputPath = value(a);
        } else if (a == "-q") {
            o.quiet = true;
        } else if (!a.empty() && a[0] == '-' && a != "-") {
            throw usage("unknown option '" + a + "'");
        } else if (o.page.empty()) {
            o.page = a;
            if (a.empty()) throw usage("empty page file name");
        } else {
            throw usage("more than one PAGE given ('" + o.page + "' and '" + a + "')");
        }
    }
    for (const std::string* p : {&o.overlayPath, &o.jsonPath, &o.outputPath})
        if (!p->empty() && p->back() == '/') throw usage("'" + *p + "' names a directory, not a file");
    return o;
}

std::vector<Rect> readTablesFile(const std::string& path) {
    std::ifstream in(path);
    if (!in) throw AppError(kExitInput, path + ": cannot open the tables file: " + std::strerror(errno));
    std::vector<Rect> rects;
    std::string line;
    for (int no = 1; std::getline(in, line); ++no) {
        line = trim(line.substr(0, line.find('#')));
        if (line.empty()) continue;
        std::istringstream ls(line);
        long v[4];
        std::string extra;
        if (!(ls >> v[0] >> v[1] >> v[2] >> v[3]) || (ls >> extra))
            throw usage(path + ":" + std::to_string(no) + ": expected four whole numbers 'x0 y0 x1 y1'");
        for (long x : v)
            if (x < 0 || x > kMaxPageSide)
                throw usage(path + ":" + std::to_string(no) + ": coordinates must lie in 0.." +
                            std::to_string(kMaxPageSide));
        if (v[0] > v[2] || v[1] > v[3])
            throw usage(path + ":" + std::to_string(no) + ": expected x0 <= x1 and y0 <= y1");
        rects.push_back(Rect{int(v[0]), int(v[1]), int(v[2]), int(v[3])});
    }
    return rects;
}

}  // namespace tavrin
