# cmutil top: plain lines when standard output is no terminal, one JSON object per sample,
# and its usage and input errors.
string(ASCII 27 TOP_ESCAPE)
cli_test(top_count_plain 0 "^sample 1: cpu [0-9.]+% process [0-9.]+% cores [0-9]+ memory [0-9.]+% .*\nsample 2: .*\nsample 3: [^\n]*\n$"
         REJECT "sample 4|${TOP_ESCAPE}" ARGS top --count 3 --interval 50)
cli_test(top_json 0 "^\\{\"sample\":1,\"interval_ms\":50,\"cpu\":\\{\"average\":[0-9.]+,.*\"cores\":\\[[0-9.]+.*\n\\{\"sample\":2,[^\n]*\"threads\":\\[[^\n]*\\]\\}\n$"
         ARGS top --json --count 2 --interval 50)
cli_test(top_interval_too_short 2 "^usage: cmutil top" ARGS top --interval 5)
cli_test(top_count_zero 2 "^usage: cmutil top" ARGS top --count 0)
cli_test(top_unknown_option 2 "^usage: cmutil top" ARGS top --fast)
cli_test(top_missing_process 1 "^cmutil: cannot read the threads of process 2147483647\n$"
         ARGS top --pid 2147483647 --count 1)
