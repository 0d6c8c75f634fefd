#include "e2e_support.h"

#include <dirent.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "formats/page_reader.h"
#include "generated_pages.h"

namespace e2e {

namespace {

std::string quote(const std::string& s) {
    std::string q = "'";
    for (char c : s) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return q + "'";
}

int shell(const std::string& cmd) {
    const int st = std::system(cmd.c_str());
    return WIFEXITED(st) ? WEXITSTATUS(st) : 128 + (WIFSIGNALED(st) ? WTERMSIG(st) : 0);
}

}  // namespace

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

std::string scratchDir(const std::string& name) {
    const char* base = std::getenv("TAVRIN_TEST_TMP");
    std::string dir = std::string(base && *base ? base : "/tmp") + "/apps-" + name + "-" + std::to_string(getpid());
    shell("rm -rf " + quote(dir) + " && mkdir -p " + quote(dir));
    return dir;
}

RunResult runTavrin(const std::vector<std::string>& args) {
    static int counter = 0;
    const std::string tmp = scratchDir("run" + std::to_string(counter++));
    std::string cmd = quote(TAVRIN_BINARY);
    for (const std::string& a : args) cmd += " " + quote(a);
    cmd += " </dev/null >" + quote(tmp + "/out") + " 2>" + quote(tmp + "/err");
    RunResult r;
    r.exitCode = shell(cmd);
    r.out = readFile(tmp + "/out");
    r.err = readFile(tmp + "/err");
    shell("rm -rf " + quote(tmp));
    return r;
}

bool fileExists(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0;
}

long long fileSize(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 ? (long long)st.st_size : -1;
}

std::vector<std::string> listDir(const std::string& dir) {
    std::vector<std::string> names;
    if (DIR* d = opendir(dir.c_str())) {
        while (dirent* e = readdir(d))
            if (std::string(e->d_name) != "." && std::string(e->d_name) != "..") names.push_back(e->d_name);
        closedir(d);
    }
    return names;
}

bool haveProgram(const char* name) {
    return shell(std::string("command -v ") + name + " >/dev/null 2>&1") == 0;
}

const char* readerName(Reader r) { return r == Reader::MuPdf ? "mutool" : "ghostscript"; }

tavrin::Page readPage(const std::string& path) {
    auto reader = tavrin::PageReader::open(path);
    tavrin::Page p;
    if (!reader->next(p)) throw std::runtime_error(path + ": no page");
    return p;
}

tavrin::Page render(const std::string& pdf, Reader reader, int dpi, bool colour, int pageNo) {
    const std::string out = pdf + "." + readerName(reader) + "-p" + std::to_string(pageNo) + (colour ? ".ppm" : ".pgm");
    std::string cmd;
    if (reader == Reader::MuPdf)
        cmd = "mutool draw -q -r " + std::to_string(dpi) + " -c " + (colour ? "rgb" : "gray") + " -o " + quote(out) +
              " " + quote(pdf) + " " + std::to_string(pageNo);
    else
        cmd = "gs -q -dNOPAUSE -dBATCH -dSAFER -sDEVICE=" + std::string(colour ? "ppmraw" : "pgmraw") + " -r" +
              std::to_string(dpi) + " -dFirstPage=" + std::to_string(pageNo) + " -dLastPage=" +
              std::to_string(pageNo) + " -sOutputFile=" + quote(out) + " " + quote(pdf);
    if (shell(cmd + " >/dev/null 2>&1") != 0) throw std::runtime_error("rendering failed: " + cmd);
    tavrin::Page p = readPage(out);
    std::remove(out.c_str());
    return p;
}

Metrics compare(const tavrin::Page& a, const tavrin::Page& b, tavrin::Rect area) {
    if (a.channels != b.channels) throw std::runtime_error("compare: channel counts differ");
    area = area.intersect({0, 0, std::min(a.width, b.width) - 1, std::min(a.height, b.height) - 1});
    const int w = area.width(), h = area.height(), ch = a.channels;
    double absSum = 0, sqSum = 0;
    for (int y = area.y0; y <= area.y1; ++y) {
        const uint8_t* p = a.row(y) + size_t(area.x0) * ch;
        const uint8_t* q = b.row(y) + size_t(area.x0) * ch;
        for (int i = 0; i < w * ch; ++i) {
            const double d = double(p[i]) - double(q[i]);
            absSum += std::fabs(d);
            sqSum += d * d;
        }
    }
    const double n = double(w) * h * ch;
    Metrics m;
    m.mae = absSum / n;
    const double mse = sqSum / n;
    m.psnr = mse > 0 ? 10.0 * std::log10(255.0 * 255.0 / mse) : 99.0;
    return m;
}

std::string ocr(const tavrin::Page& page, const tavrin::Rect& area) {
    if (!haveProgram("tesseract")) return "";
    const std::string dir = scratchDir("ocr");
    writePnm(tavrin::cropPage(page, area), dir + "/crop.pnm");
    shell("OMP_THREAD_LIMIT=1 tesseract " + quote(dir + "/crop.pnm") + " " + quote(dir + "/text") +
          " --dpi 300 -l eng >/dev/null 2>&1");
    const std::string text = readFile(dir + "/text.txt");
    shell("rm -rf " + quote(dir));
    return text;
}

double characterErrorRate(const std::string& want, const std::string& got) {
    const auto words = [](const std::string& s) {
        std::istringstream in(s);
        std::string w, out;
        while (in >> w) out += (out.empty() ? "" : " ") + w;
        return out;
    };
    const std::string a = words(want), b = words(got);
    std::vector<size_t> row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
    for (size_t i = 1; i <= a.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            const size_t up = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] != b[j - 1])});
            diagonal = up;
        }
    }
    return a.empty() ? 0.0 : double(row[b.size()]) / double(a.size());
}

namespace {

// The integer after `"key": ` at or behind `from`; npos-safe.
long numberAfter(const std::string& s, const std::string& key, size_t from, size_t* end) {
    const size_t at = s.find("\"" + key + "\": ", from);
    if (at == std::string::npos) throw std::runtime_error("no " + key + " in " + s.substr(from, 80));
    size_t used = 0;
    const long v = std::stol(s.substr(at + key.size() + 4), &used);
    *end = at + key.size() + 4 + used;
    return v;
}

}  // namespace

std::vector<tavrin::Rect> jsonRegions(const std::string& json) {
    std::vector<tavrin::Rect> out;
    const size_t at = json.find("\"regions\"");
    if (at == std::string::npos) return out;
    const size_t close = json.find(']', at);
    size_t pos = json.find('{', at);
    while (pos != std::string::npos && pos < close) {
        tavrin::Rect r;
        r.x0 = int(numberAfter(json, "x", pos, &pos));
        r.y0 = int(numberAfter(json, "y", pos, &pos));
        r.x1 = r.x0 + int(numberAfter(json, "width", pos, &pos)) - 1;
        r.y1 = r.y0 + int(numberAfter(json, "height", pos, &pos)) - 1;
        out.push_back(r);
        pos = json.find('{', pos);
    }
    return out;
}

std::string jsonField(const std::string& json, const std::string& key) {
    const std::string tag = "\"" + key + "\": ";
    const size_t at = json.find(tag);
    if (at == std::string::npos) return std::string();
    const size_t begin = at + tag.size();
    const size_t end = json.find_first_of(",\n", begin);
    return json.substr(begin, end - begin);
}

double coveredShare(const tavrin::Rect& r, const std::vector<tavrin::Rect>& regions) {
    long long covered = 0;
    for (int y = r.y0; y <= r.y1; ++y)
        for (int x = r.x0; x <= r.x1; ++x)
            for (const tavrin::Rect& g : regions)
                if (x >= g.x0 && x <= g.x1 && y >= g.y0 && y <= g.y1) {
                    ++covered;
                    break;
                }
    return double(covered) / (double(r.width()) * r.height());
}

}  // namespace e2e
