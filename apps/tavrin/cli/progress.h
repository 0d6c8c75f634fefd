// A one-line progress bar on standard error, shown only for more than one
// page and only when standard error is a terminal.
#ifndef TAVRIN_APP_PROGRESS_H
#define TAVRIN_APP_PROGRESS_H

namespace tavrin {

class Progress {
public:
    explicit Progress(int total);
    ~Progress();
    void update(int done);

private:
    int total_;
    bool shown_;
};

}  // namespace tavrin

#endif
