#include "peers.h"

#include <csignal>
#include <cstdio>
#include <functional>
#include <memory>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace
{
/// Python, running scikit_learn.py. Requests go to its standard input, answers come from its standard output.
class Python
{
public:
    Python()
    {
        int requests[2];
        int answers[2];
        if (pipe(requests) != 0 || pipe(answers) != 0)
            throw std::runtime_error("Cannot make pipes");
        process_ = fork();
        if (process_ == 0)
        {
            dup2(requests[0], STDIN_FILENO);
            dup2(answers[1], STDOUT_FILENO);
            for (const int end : {requests[0], requests[1], answers[0], answers[1]})
                close(end);
            execl(BENCHMARKS_PYTHON, BENCHMARKS_PYTHON, BENCHMARKS_SCIKIT_LEARN, nullptr);
            _exit(127);
        }
        close(requests[0]);
        close(answers[1]);
        signal(SIGPIPE, SIG_IGN); // if the program ends early, its missing answer tells
        requests_ = fdopen(requests[1], "w");
        answers_ = fdopen(answers[0], "r");
        if (process_ < 0 || !requests_ || !answers_)
            throw std::runtime_error("Cannot start " BENCHMARKS_PYTHON);
    }

    Python(const Python&) = delete;
    Python& operator=(const Python&) = delete;

    ~Python()
    {
        std::fclose(requests_); // ends the program
        std::fclose(answers_);
        waitpid(process_, nullptr, 0);
    }

    void send(const std::string& line) { std::fprintf(requests_, "%s\n", line.c_str()); }

    void send(const Table& table)
    {
        send(std::to_string(table.rows) + ' ' + std::to_string(table.columns));
        std::fwrite(table.values.data(), sizeof(double), table.values.size(), requests_);
        const std::vector<double> labels(table.labels.begin(), table.labels.end());
        std::fwrite(labels.data(), sizeof(double), labels.size(), requests_);
    }

    int answer()
    {
        std::fflush(requests_);
        int number = -1;
        if (std::fscanf(answers_, "%d", &number) != 1)
            throw std::runtime_error("scikit-learn gave no answer");
        return number;
    }

private:
    pid_t process_;
    std::FILE* requests_;
    std::FILE* answers_;
};

class ScikitLearn : public Peer
{
public:
    ScikitLearn() : Peer("scikit-learn") {}

    void addNearest(std::vector<Tool>& tools, const Table& rows, const Table& queries, long k, double order) override
    {
        for (const std::string algorithm : {"brute", "kd_tree"})
        {
            const std::string arguments = std::to_string(k) + ' ' + std::to_string(order) + ' ' + algorithm;
            add_(tools, ", " + algorithm, "nearest", 1, arguments, {rows, queries});
            if (rows.rows <= 100000) // more take minutes
                add_(tools, ", " + algorithm + ", 1,024 at a time", "nearest", 1024, arguments, {rows, queries});
        }
    }

    void addNormalRun(std::vector<Tool>& tools, const Table& training, const Table& queries, bool dependent) override
    {
        add_(tools, "", "normal_run", 1, dependent ? "1" : "0", {training, queries});
        add_(tools, ", 1,024 at a time", "normal_run", 1024, dependent ? "1" : "0", {training, queries});
    }

    void addNormalTraining(std::vector<Tool>& tools, const Table& training, bool dependent) override
    {
        add_(tools, "", "normal_training", 1, dependent ? "1" : "0", {training});
    }

    void addTree(std::vector<Tool>& tools, long depth, const Table& queries) override
    {
        Table leaves{1L << depth, depth, {}, {}};
        for (long leaf = 0; leaf < leaves.rows; ++leaf)
        {
            for (long level = 0; level < depth; ++level)
                leaves.values.push_back((leaf >> (depth - 1 - level) & 1) != 0 ? 0.75 : 0.25);
            leaves.labels.push_back(leaf);
        }
        Table labelled = queries;
        labelled.labels.assign(static_cast<std::size_t>(queries.rows), 0);
        add_(tools, " (label only)", "tree", 1, "", {leaves, labelled});
        add_(tools, " (label only), 1,024 at a time", "tree", 1024, "", {leaves, labelled});
    }

private:
    using Tables = std::vector<std::reference_wrapper<const Table>>;

    /// Adds a tool that the program makes, unless it cannot make the one asked for. It goes when the tool goes.
    void add_(std::vector<Tool>& tools, const std::string& suffix, const std::string& maker, long batch,
              const std::string& arguments, const Tables& tables)
    {
        if (!python_)
            python_ = std::make_shared<Python>();
        python_->send(maker + ' ' + std::to_string(batch) + ' ' + arguments);
        for (const Table& table : tables)
            python_->send(table);
        const int number = python_->answer();
        if (number < 0)
            return;
        const std::shared_ptr<const int> id(new int(number),
                                            [python = python_](const int* made)
                                            {
                                                python->send("forget " + std::to_string(*made));
                                                python->answer();
                                                delete made;
                                            });
        tools.push_back({name() + suffix, Role::Peer,
                         [python = python_, id](long first, long count)
                         {
                             python->send("run " + std::to_string(*id) + ' ' + std::to_string(first) + ' ' +
                                          std::to_string(count));
                             python->answer();
                         },
                         batch});
    }

    std::shared_ptr<Python> python_; // started when it is first needed
} scikitLearn;
} // namespace
