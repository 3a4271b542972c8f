// The zone-row and rule searches: which period of a zone's history and which
// daylight-saving item are in force at a UTC or local time. Every search is
// linear over the constant tables and every candidate moment is a record on
// the stack; nothing here allocates.
//
// Moments taken from the tables (rule transitions, until times) are built
// from their fields without normalising them and compared field by field
// with compare_fields, so a day past the month's end or hour 24 orders like
// the moment just after the month or the day.
#include "time/ORLIX_Time_Zone.hpp"

namespace orlix::time {

namespace {

// The searches compare a table moment with utc + shift; kNoShift compares
// utc itself (UTC untils and UTC rule times).
enum : int32_t { kNoShift = INT32_MIN };

// utc + seconds into *out; kNoShift leaves utc as it is.
bool shifted(const Time &utc, int32_t seconds, Time *out) {
  *out = utc;
  return seconds == kNoShift || utc_addsave(*out, seconds);
}

// An item's transition in toyear or in an earlier year, read in the clock
// that follows it: wall-clock items as written, standard-time items plus
// their save, UTC items plus gmtoff and their save.
bool new_reading(const RuleItem &item, int32_t gmtoff, Time *moment) {
  switch (item.attype) {
    case 0: return true;
    case 1: return utc_addsave(*moment, item.save);
    default: return utc_addsave(*moment, gmtoff + item.save);
  }
}

}  // namespace

// ---- dated moments --------------------------------------------------------------

int32_t getday(int32_t daytype, int32_t year, int32_t month, int32_t day, int32_t weekday) {
  if (!year_in_range(year) || month < 1 || month > 12) return -1;
  const int32_t last = month_length(year, month);
  const int32_t w = weekday_of(year, month, last);
  int32_t l = w < weekday ? last - w + weekday - 7 : last - (w - weekday);
  switch (daytype) {
    case 1: return l;
    case 2:
      if (l < day) return -1;
      while (day <= l - 7) l -= 7;
      return l;
    case 3:
      if (day >= l) return l;
      while (day < l) l -= 7;
      return l < 1 ? -1 : l;
    default: return -1;
  }
}

bool dated_transition(const RuleItem &item, int32_t year, Time *out) {
  if (item.daytype < 0 || item.daytype > 3) return false;
  const int32_t day =
      item.daytype == 0 ? item.day : getday(item.daytype, year, item.month, item.day, item.weekday);
  if (day == -1) return false;
  *out = utc_fields(year, item.month, day, item.athour, item.atminute, item.atsecond);
  return true;
}

bool row_until(const ZoneRow &row, Time *out) {
  if (row.untildaytype < 0 || row.untildaytype > 3) return false;
  const int32_t day =
      row.untildaytype == 0
          ? row.untilday
          : getday(row.untildaytype, row.untilyear, row.untilmonth, row.untilday, row.untilweekday);
  if (day == -1) return false;
  *out = utc_fields(row.untilyear, row.untilmonth, day, row.untilhour, row.untilminute,
                    row.untilsecond);
  return true;
}

const RuleItem *localfindruleitemwithoutdts(const RuleSet &set, const RuleItem &self,
                                            const Time &moment) {
  const RuleItem *best = nullptr;
  Time latest{};
  for (int32_t i = 0; i < set.count; ++i) {
    const RuleItem &item = set.items[i];
    if (&item == &self || item.fromyear > moment.year) continue;
    Time t;
    if (moment.year <= item.toyear) {
      if (!dated_transition(item, moment.year, &t)) continue;
      if (compare_fields(t, moment) > 0 &&
          (moment.year - 1 < item.fromyear || !dated_transition(item, moment.year - 1, &t)))
        continue;
    } else if (!dated_transition(item, item.toyear, &t)) {
      continue;
    }
    if (best == nullptr || compare_fields(t, latest) > 0) {
      best = &item;
      latest = t;
    }
  }
  return best;
}

int32_t save_before(const RuleSet &set, const RuleItem &item, const Time &moment) {
  const RuleItem *before = localfindruleitemwithoutdts(set, item, moment);
  return before == nullptr ? 0 : before->save;
}

// ---- UTC to local -------------------------------------------------------------------

const ZoneRow *find_row_utc(const ZoneName &zone, const Time &utc) {
  for (int32_t i = 0; i < zone.count; ++i) {
    const ZoneRow &row = zone.rows[i];
    if (row.untilyear == INT32_MIN) continue;
    if (row.untilyear == INT32_MAX) return &row;
    Time until;
    if (!row_until(row, &until)) continue;
    // UTC untils compare with utc itself. A fixed-save row with a wall-clock
    // until compares utc + save (its gmtoff left out) and every other row
    // utc + gmtoff (a rule save left out); both are kept as they are.
    int32_t shift = row.gmtoff;
    if (row.untiltype == 2)
      shift = kNoShift;
    else if (row.rulekind == 1 && row.untiltype == 0)
      shift = row.save;
    Time x;
    if (!shifted(utc, shift, &x)) return nullptr;
    if (compare_fields(x, until) < 0) return &row;
  }
  return nullptr;
}

bool decide_utc(const ZoneRow &row, const Time &utc, UtcOffset *out) {
  if (row.rulekind != 0 || row.rules == nullptr) {
    *out = UtcOffset{row.gmtoff + row.save, row.save, UtcOffset::kFixed};
    return true;
  }
  const RuleSet &set = *row.rules;
  const int32_t year = utc.year;
  const RuleItem *winner = nullptr;
  Time latest{};
  // The shifted time of the previous item, reused when the shift repeats.
  int32_t last_shift = kNoShift;
  Time x = utc;
  for (int32_t i = 0; i < set.count; ++i) {
    const RuleItem &item = set.items[i];
    if (item.fromyear > year) continue;
    Time moment;
    if (year <= item.toyear) {
      if (!dated_transition(item, year, &moment)) continue;
      int32_t shift = kNoShift;
      if (item.attype == 1)
        shift = row.gmtoff;
      else if (item.attype == 0)
        shift = row.gmtoff + save_before(set, item, moment);
      if (shift != last_shift) {
        if (!shifted(utc, shift, &x)) return false;
        last_shift = shift;
      }
      // Not reached yet this year: the previous year's transition counts.
      if (compare_fields(moment, x) > 0 &&
          (year - 1 < item.fromyear || !dated_transition(item, year - 1, &moment)))
        continue;
    } else if (!dated_transition(item, item.toyear, &moment)) {
      continue;
    }
    if (winner == nullptr || compare_fields(moment, latest) > 0) {
      winner = &item;
      latest = moment;
    }
  }
  if (winner == nullptr)
    *out = UtcOffset{row.gmtoff, 0, UtcOffset::kNoItem};
  else
    *out = UtcOffset{row.gmtoff + winner->save, winner->save, UtcOffset::kItem};
  return true;
}

bool apply_utc(const UtcOffset &d, const Time &utc, int32_t zone, Time *out) {
  Time local = utc;
  if (d.kind != UtcOffset::kItem) {
    if (!utc_addsave(local, d.offset)) return false;
  } else if (d.offset != 0) {
    if (!utc_addsave(local, d.offset)) return false;
    // The offset step is taken to have counted the leap seconds between the
    // two readings, so they are taken out again. (Whole minutes do not
    // count them; the correction is kept as it is, second 1 included.)
    if (d.offset < 0) {
      const int32_t n = leapsecondCount(local, utc);
      if (n > 0) {
        if (!utc_addsecond(local, n)) return false;
        if (isLeapSecond(local)) local.second = 59;
      }
    } else {
      const int32_t n = leapsecondCount(utc, local);
      if (n > 0) {
        if (!utc_addsecond(local, -n)) return false;
        if (isLeapSecond(local)) {
          local.second = 1;
          if (!utc_addminute(local, 1)) return false;
        }
      }
    }
  }
  // The flags are set on the copy: narrow stores into a record that is then
  // copied whole would stall the copy.
  *out = local;
  out->utc = 0;
  out->dst = d.save != 0 ? 1 : 0;
  out->zone = zone;
  return true;
}

bool utc2localclock(const ZoneRow &row, const Time &utc, int32_t zone, Time *out) {
  UtcOffset d;
  return decide_utc(row, utc, &d) && apply_utc(d, utc, zone, out);
}

bool utc2local_literal(const Time &utc, int32_t zone, Time *out) {
  const ZoneRow *row = find_row_utc(g_timezone_table[zone], utc);
  return row != nullptr && utc2localclock(*row, utc, zone, out);
}

// ---- local to UTC -------------------------------------------------------------------

bool row_local_until(const ZoneRow &row, Bound *kind, Time *moment) {
  Time until;
  if (!row_until(row, &until)) {
    *kind = Bound::kSkip;
    return true;
  }
  *kind = Bound::kBefore;
  if (row.untiltype == 0) {
    *moment = until;
    return true;
  }
  if (row.rulekind != 0 || row.rules == nullptr) {
    *moment = until;
    return utc_addsave(*moment, row.untiltype == 1 ? row.save : row.gmtoff + row.save);
  }
  // The last second of the period, in UTC, read on the period's own clock.
  Time last = until;
  if (!utc_addsave(last, row.untiltype == 1 ? -1 - row.gmtoff : -1)) return false;
  *kind = Bound::kAtOrBefore;
  return utc2localclock(row, last, kUtcZone, moment);
}

const ZoneRow *localfindrule(const ZoneName &zone, const Time &local) {
  for (int32_t i = 0; i < zone.count; ++i) {
    const ZoneRow &row = zone.rows[i];
    if (row.untilyear == INT32_MIN) continue;
    if (row.untilyear == INT32_MAX) return &row;
    Bound kind;
    Time bound;
    if (!row_local_until(row, &kind, &bound)) return nullptr;
    if (kind == Bound::kSkip) continue;
    const int c = compare_fields(local, bound);
    if (kind == Bound::kBefore ? c < 0 : c <= 0) return &row;
  }
  return nullptr;
}

Dated local_transition(const RuleSet &set, const RuleItem &item, int32_t year, int32_t gmtoff,
                       Time *a, Time *b) {
  Time d;
  if (!dated_transition(item, year, &d)) return Dated::kNone;
  const int32_t before = save_before(set, item, d);
  *a = d;
  if (item.attype != 0 && !utc_addsave(*a, item.attype == 1 ? before : gmtoff + before))
    return Dated::kFailed;
  *b = *a;
  return utc_addsave(*b, item.save - before) ? Dated::kOk : Dated::kFailed;
}

bool localfindruleitem(const RuleSet &set, const Time &local, int32_t gmtoff, ItemPick *out) {
  const int32_t year = local.year;
  *out = ItemPick{nullptr, {}, {}};
  Time latest{};
  for (int32_t i = 0; i < set.count; ++i) {
    const RuleItem &item = set.items[i];
    if (item.fromyear > year) continue;
    // The candidate is this year's transition, at its moment A, or an
    // earlier one read in the new clock (A and B are then that moment).
    Time a;
    Time b;
    bool this_year = false;
    if (year <= item.toyear) {
      const Dated dated = local_transition(set, item, year, gmtoff, &a, &b);
      if (dated == Dated::kFailed) return false;
      if (dated == Dated::kNone) continue;
      // From A on, or inside the repeated interval [B, A) without the dst
      // flag: this year's transition. Before B, or in [B, A) with the flag:
      // the previous year's.
      const bool after_a = compare_fields(local, a) >= 0;
      this_year = after_a || (compare_fields(b, local) <= 0 && local.dst == 0);
      if (!this_year && year - 1 < item.fromyear) continue;
    }
    if (!this_year) {
      const int32_t earlier = year > item.toyear ? item.toyear : year - 1;
      if (!dated_transition(item, earlier, &a)) continue;
      if (!new_reading(item, gmtoff, &a)) return false;
      b = a;
    }
    if (out->item == nullptr || compare_fields(a, latest) > 0) {
      out->item = &item;
      latest = a;
      out->a = a;
      out->b = b;
    }
  }
  return true;
}

// ---- whole conversions on values --------------------------------------------------

bool local_offset_literal(const Time &local, int32_t zone, int32_t *offset) {
  const ZoneRow *row = localfindrule(g_timezone_table[zone], local);
  if (row == nullptr) return false;
  if (row->rulekind != 0 || row->rules == nullptr) {
    *offset = -row->gmtoff - row->save;
    return true;
  }
  ItemPick pick;
  if (!localfindruleitem(*row->rules, local, row->gmtoff, &pick)) return false;
  *offset = -row->gmtoff - (pick.item == nullptr ? 0 : pick.item->save);
  return true;
}

}  // namespace orlix::time
