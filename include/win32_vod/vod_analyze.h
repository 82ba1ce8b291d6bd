/* Analysis rules, as clients send them and the analysis engine takes them. */
#ifndef WIN32_VOD_VOD_ANALYZE_H
#define WIN32_VOD_VOD_ANALYZE_H

#include "win32_vod/vod_player.h"

typedef struct TVcaPoint {
    int32_t x, y;
} TVcaPoint;

typedef struct TVcaLine {
    TVcaPoint start, end;
} TVcaLine;

typedef struct TVcaPolygon {
    int32_t point_num;
    TVcaPoint point[8];
} TVcaPolygon;

typedef struct TVcaParamTripwire {
    int32_t size, target_type_check, type, direction, min_distance, min_time, display_rule, display_stat, alarm_count,
        color, alarm_color;
    TVcaLine line;
} TVcaParamTripwire;

typedef struct TVcaParamPerimeter {
    int32_t size, target_type_check, mode, type, direction, min_distance, min_time, display_rule, display_stat,
        alarm_count, color, alarm_color;
    TVcaPolygon region;
} TVcaParamPerimeter;

struct QueryRule {
    int32_t rule_id, rule_type;
    union {
        TVcaParamTripwire tripwire;
        TVcaParamPerimeter perimeter;
    } param;
};

#endif
