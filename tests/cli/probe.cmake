# cmutil probe: the live machine in text and JSON, a captured laptop tree, and a bad argument.
cli_test(probe_text 0 "cpu\n  brand +[^\n]+\n  parsed .*\n  frequency +[0-9]+ MHz.*memory\n  total +[0-9]+ MB.*os\n  version +[0-9]+\\.[0-9]+\\.[0-9]+.*static score[^\n]*\n  level 0: 5[0-9], level 1: 6[0-9]"
         ARGS probe)
cli_test(probe_json 0 "^\\{\"cpu\":\\{\"arch\":\"[^\"]+\",\"brand\":.*\"static_score\":\\[5[0-9],6[0-9],7[0-9],8[0-9],9[0-9],1[0-2][0-9]\\]\\}\n$"
         ARGS probe --json)
cli_test(probe_hybrid_tree 0 "13th Gen Intel\\(R\\) Core\\(TM\\) i7-1360P\n  parsed +series Gen, model i7, number 1360 \\(1360P\\), Intel\n  cores +12 physical x 1 threads \\(4 performance, 8 efficiency\\)\n  frequency +2800 MHz.*total +17179 MB.*model +XPS 13 9320\n  maker +Dell Inc\\."
         ARGS probe)
set_property(TEST cli_probe_hybrid_tree APPEND PROPERTY ENVIRONMENT
             "CMUTIL_FS_ROOT=${PROJECT_SOURCE_DIR}/tests/fixtures/system/intel-hybrid")
cli_test(probe_bad_argument 2 "usage: cmutil probe \\[--json\\]" ARGS probe --yaml)
