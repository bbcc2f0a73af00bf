#ifndef SORVANIC_BENCH_BENCHMARKS_H
#define SORVANIC_BENCH_BENCHMARKS_H

namespace bench {

/// How long a run is to take.
struct plan {
    bool smoke; ///< a few rounds each: does it run, are the answers right

    int rounds(int full, int few) const { return smoke ? few : full; }
};

// One of these for each hot path: registers its benchmarks.
void register_md5(const plan& plan);
void register_file_digest(const plan& plan);
void register_program_lists(const plan& plan);
void register_text_tables(const plan& plan);
void register_process_map(const plan& plan);
void register_exec_check(const plan& plan);
void register_channel(const plan& plan);
void register_session(const plan& plan);

} // namespace bench

#endif
