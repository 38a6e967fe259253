# cmutil net and cmutil ip: the live machine, both forms, and bad arguments.
cli_test(net_text 0 "local addresses\n.*candidates \\(pruned\\)\n.*network\n  type +[A-Za-z]+.*\n  primary +.*\n  families +IPv4 (yes|no), IPv6 (yes|no)"
         ARGS net)
cli_test(net_json 0 "^\\{\"addresses\":\\[.*\\],\"candidates\":\\[.*\\],\"network\":\\{\"ipv4\":(true|false),\"ipv6\":.*\"type\":\"[A-Za-z0-9.]+\".*\\}\n$"
         ARGS net --json)
cli_test(net_bad_argument 2 "usage: cmutil net \\[--json\\]" ARGS net --xml)
cli_test(ip_expand 0 "^fe80:0000:0000:0000:0000:0000:0000:0001\n$" ARGS ip expand fe80::1)
cli_test(ip_expand_invalid 1 "cmutil: 10.0.0.1: not an IPv6 address" ARGS ip expand 10.0.0.1)
cli_test(ip_prefix 0 "^same prefix\n$" ARGS ip prefix 10.1.2.3 10.1.9.9 255.255.0.0)
cli_test(ip_prefix_mixed 1 "not three addresses of one family" ARGS ip prefix 10.1.2.3 ::1 255.255.0.0)
cli_test(ip_id 0 "^3232235778\n$" ARGS ip id 192.168.1.2)
cli_test(ip_id_back 0 "^192.168.1.2\n$" ARGS ip id 3232235778)
cli_test(ip_no_action 2 "usage: cmutil ip expand" ARGS ip)
