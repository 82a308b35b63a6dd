#!/usr/bin/env bash
# Mutation check of the code that keeps secrets, busy flags, rule decisions and the card layer's
# codes. Each line of the table below is one small change to one file; applied alone, it must make
# the tests of its scope fail (KILLED). A mutant the tests let through (SURVIVED) is a test that is
# missing; an entry whose text is no longer found exactly once in its file (STALE) is a table that
# has fallen behind the code. Either makes the script fail.
#
#   scripts/mutants.sh            every mutant (native ones, then the Windows ones under Wine)
#   scripts/mutants.sh --native   the native mutants only (CI)
#
# Scope "native" runs the native test program (built in build/mutants-native); any other scope is
# a comma-separated list of Windows test programs, each with an optional gtest filter after "=",
# built in build/win and run under Wine. In the search and replace texts, \n is a line break.
# Files are changed in place and restored afterwards, also when the script is interrupted.
# With CVPIN_BUILD_LOCK set to a lock file, each mutant's build and test run holds that lock
# (flock) and releases it in between; test.sh runs the native part under its own lock instead.
source "$(dirname "$0")/common.sh"

# scope | file | search | replace
MUTANTS=$(cat <<'EOF'
native | src/services/secure_memory.cpp | p[i] = 0; | (void)p[i];
native | src/services/secure_memory.cpp | SecureWipe(block, bytes); | (void)bytes;
native | src/services/secstr.cpp | FreeBuffer(std::exchange(m_data, grown), m_capacity); | delete[] reinterpret_cast<unsigned char*>(std::exchange(m_data, grown));
native | src/services/secstr.cpp | CSecStr::~CSecStr() {\n    FreeBuffer(m_data, m_capacity); | CSecStr::~CSecStr() {\n    delete[] reinterpret_cast<unsigned char*>(m_data);
native | src/services/secstr.cpp | if (this != &other) {\n        FreeBuffer(m_data, m_capacity); | if (this != &other) {\n        delete[] reinterpret_cast<unsigned char*>(m_data);
native | src/services/secstr.cpp | FreeBuffer(scratch, capacity); | delete[] reinterpret_cast<unsigned char*>(scratch);
native | src/services/secstr.cpp | WipeChars(m_data, m_capacity + 1);\n    m_length = 0; | m_length = 0;
native | src/services/secstr.cpp | WipeChars(m_data + m_length - count, count); | (void)count;
native | src/services/secstr.cpp | WipeChars(m_data + m_length, m_capacity + 1 - m_length); | m_data[m_length] = 0;
native | sim/secure_bytes.h | if (!m_bytes.empty()) SecureWipe(m_bytes.data(), m_bytes.size()); | (void)0;
native | src/dialogs/pinchange/pin_rules.cpp | static_cast<uint8_t>(static_cast<uint8_t>(pin[i]) - static_cast<uint8_t>(pin[i - 1])) | static_cast<uint16_t>(pin[i] - pin[i - 1])
native | src/dialogs/pinchange/pin_rules.cpp | if (step(i) != first) return false; | if (step(i) != first) return true;
native | src/dialogs/pinchange/pin_rules.cpp | pin[i] < L'0' || pin[i] > L'9' | pin[i] < L'0' || pin[i] >= L'9'
native | src/dialogs/pinchange/pin_rules.cpp | rules.weakRule = allowWeak == 0; | rules.weakRule = allowWeak != 0;
native | src/dialogs/pinchange/pin_rules.cpp | rules.alphaRule = preventAlpha != 0; | rules.alphaRule = preventAlpha == 0;
native | src/dialogs/pinchange/pin_rules.cpp | rules.samePinRule = preventSame != 0; | rules.samePinRule = preventSame == 0;
native | src/dialogs/pinchange/pin_rules.cpp | out.rows[row] = {shown, shown && met[row]}; | out.rows[row] = {shown, met[row]};
native | src/dialogs/pinchange/pin_rules.cpp | if (shown && !met[row]) out.allMet = false; | if (!met[row]) out.allMet = false;
native | src/dialogs/pinchange/pin_rules.cpp | length >= rules.minLength | length > rules.minLength
native | src/dialogs/pinchange/pin_rules.cpp | length <= rules.maxLength | length < rules.maxLength
native | src/dialogs/pinchange/pin_rules.cpp | newPin.Compare(current) != 0 | candidate.Compare(current) != 0
native | src/dialogs/pinchange/pin_rules.cpp | !IsPinWeak(candidate) | !IsPinWeak(newPin)
native | src/dialogs/pinchange/pin_rules.cpp | !IsAlphaPinWeak(candidate) | !IsAlphaPinWeak(newPin)
native | src/dialogs/pinchange/pin_rules.cpp | newPin.Compare(confirm) == 0 | candidate.Compare(confirm) == 0
change_pin_test=ChangePinWindow.AnEmptyCurrentPin* | src/dialogs/pinchange/pin_rules.cpp | return rulesMet && !(requireCurrentPin && currentEmpty); | return rulesMet;
native | src/card/card_result.cpp | {SMMW_E_PIN_BLOCKED, CV_OBJ_API_PIN_BLOCKED} | {SMMW_E_PIN_BLOCKED, CV_OBJ_API_WRONG_CODE}
native | src/card/card_result.cpp | {SMMW_E_WRONG_CODE, CV_OBJ_API_WRONG_CODE} | {SMMW_E_WRONG_CODE, CV_OBJ_API_FAILED}
native | src/card/card_result.cpp | {SMMW_E_ACCESS_DENIED, CV_OBJ_API_ACCESS_DENIED} | {SMMW_E_ACCESS_DENIED, CV_OBJ_API_FAILED}
native | src/card/card_result.cpp | {SMMW_E_CANCELLED, CV_OBJ_API_CANCELLED} | {SMMW_E_CANCELLED, CV_OBJ_API_FAILED}
native | src/card/card_result.cpp | {SMMW_E_NO_CARD, CV_OBJ_API_NO_CARD} | {SMMW_E_NO_CARD, CV_OBJ_API_FAILED}
native | src/card/card_result.cpp | if (row.moduleCode == moduleCode) return row.layerCode; | if (row.moduleCode == moduleCode) return CV_OBJ_API_FAILED;
native | src/card/card_result.cpp | uint32_t code = MapModuleCode(e->GetCode()); | uint32_t code = CV_OBJ_API_FAILED;
native | src/card/card_result.cpp | return CV_OBJ_API_NO_MEMORY; | return CV_OBJ_API_FAILED;
native | sim/profile.cpp | if (++depth > kMaxNesting) { | if (++depth > kMaxNesting * 100000) {
bad_input_test | src/framework/dialog_win.cpp | m_hWndParent = MayOwn(caller) ? caller : nullptr; | m_hWndParent = caller;
memscan_test | src/services/secure_memory_win.cpp | SecureWipe(block, bytes); | (void)bytes;
memscan_test | src/api/pin_prompt_api_win.cpp | SecureWipe(buffer, size); | (void)size;
memscan_test | src/api/change_pin_api_win.cpp | SecureWipe(currentPin, sizeof(wchar_t) * currentPinSize); | (void)currentPinSize;
framework_unit_test=SecureEdit* | src/framework/secure_edit_win.cpp | const int length = m_text.GetLength();\n    m_text.Empty(); | const int length = m_text.GetLength();
prompt_gate_unit_test | src/api/prompt_gate_win.h | if (m_holding) m_busy.store(false); | (void)m_holding;
pin_prompt_test=PinPrompt.* | src/api/prompt_gate_win.cpp | m_holding = true; | (void)0;
platform_services_unit_test=HostProviders.* | src/services/toast_win.cpp | if (ToastSink sink = g_sink.load()) | if (ToastSink sink = nullptr)
platform_services_unit_test=NotifyEvent.* | src/services/agent_notify_win.cpp | static_cast<DWORD>((wcslen(readerName) + 1) * sizeof(wchar_t)) | static_cast<DWORD>(wcslen(readerName) + 1)
native | sim/sim_card.cpp | if (!m_profile.staticCode.Empty())\n        Fail(SMMW_E_NOT_SUPPORTED | if (false)\n        Fail(SMMW_E_NOT_SUPPORTED
native | sim/sim_card.cpp | response.size() == code.Size() && SameBytes | SameBytes
native | sim/sim_card.cpp | SameBytes(code.Bytes().data(), response.data(), code.Size()) | true
native | sim/sim_card.cpp | m_profile.type == CardType::Piv || m_profile.type == CardType::Cac; | m_profile.type == CardType::Piv;
native | sim/sim_card.cpp | numeric && pinrules::IsAlphaPinWeak(pin) | numeric && pinrules::IsAlphaPinWeak(CSecStr())
native | sim/sim_card.cpp | rules.weakCheck && pinrules::IsPinWeak(pin) | pinrules::IsPinWeak(pin)
native | sim/sim_card.cpp | rules.weakCheck && pinrules::IsPinWeak(pin) | !rules.weakCheck && pinrules::IsPinWeak(pin)
native | sim/sim_card.cpp | if (state.triesLeft == 0) return Verification::Blocked; | (void)0;
native | sim/sim_card.cpp | --state.triesLeft;\n        return Verification::WrongPin; | return Verification::WrongPin;
native | sim/sim_card.cpp | state.triesLeft = state.maxTries;\n    return Verification::Verified; | return Verification::Verified;
native | src/dialogs/unlock/unlock_text.cpp | if (i > 0 && i % 4 == 0) out.AppendChar(L'-'); | if (i % 4 == 0) out.AppendChar(L'-');
native | src/dialogs/unlock/unlock_text.cpp | return Grouped(challenge, length < 16 ? length : 16); | return Grouped(challenge, length);
native | src/dialogs/unlock/unlock_text.cpp | if (!IsHexDigit(c)) return false; | (void)IsHexDigit(c);
native | src/dialogs/unlock/unlock_text.cpp | return digits == 16; | return digits >= 16;
native | src/dialogs/unlock/unlock_text.cpp | return (lines + 1) * textHeight; | return lines * textHeight;
native | src/dialogs/unlock/unlock_text.cpp | if (cardResult == CV_OBJ_API_WRONG_CODE) return Outcome::WrongCode; | if (cardResult == CV_OBJ_API_WRONG_CODE) return Outcome::Failed;
unlock_test=Unlock.TheResponse* | src/dialogs/unlock/unlock_card_dlg_win.cpp | acceptable = rulesMet && unlock::IsResponseWellFormed(Response()); | acceptable = rulesMet;
unlock_test=Unlock.AWrongResponse* | src/dialogs/unlock/unlock_card_dlg_win.cpp | if (m_challengeMode) ShowNewChallenge(); | (void)0;
unlock_test=Unlock.TheTransaction* | src/dialogs/unlock/unlock_card_dlg_win.cpp | if (m_timer && m_periodMs != 0) SetTimer(m_hWnd, 1, static_cast<UINT>(m_periodMs), nullptr); | (void)0;
unlock_notices_test=Notices.TheUnlockCode* | src/dialogs/unlock/unlock_code_dlg_win.cpp | EndDialog(never ? IDOK : IDCANCEL); | EndDialog(IDOK);
memscan_test=PinMemory.NoCopyOfTheUnlockCode* | src/dialogs/unlock/unlock_code_dlg_win.cpp | fw::WipeEditText(Item(IDC_UC_CODE)); | (void)0;
EOF
)

NATIVE_ONLY=0
[ "${1:-}" = "--native" ] && NATIVE_ONLY=1
MUTANT_NATIVE="$BUILD/mutants-native"
SCRATCH=$(mktemp -d)
RESTORE=""  # the file under mutation, while it is mutated

lock_step() { [ -n "${CVPIN_BUILD_LOCK:-}" ] && { exec 9>"$CVPIN_BUILD_LOCK"; flock 9; }; return 0; }
unlock_step() { [ -n "${CVPIN_BUILD_LOCK:-}" ] && exec 9>&-; return 0; }

restore() {
    if [ -n "$RESTORE" ]; then
        cp "$SCRATCH/original" "$ROOT/$RESTORE"
        RESTORE=""
    fi
}
cleanup() {
    restore
    rm -rf "$SCRATCH"
    [ -n "${WINE_STARTED:-}" ] && { stop_wine; stop_display; }
    return 0
}
trap cleanup EXIT
trap 'exit 130' INT TERM

# Replaces the one occurrence of $2 in file $1 by $3 (\n: line break). 0: changed; else stale.
apply_mutant() {
    SEARCH="$2" REPLACE="$3" perl -e '
        my ($s, $r) = map { s/\\n/\n/gr } @ENV{qw(SEARCH REPLACE)};
        local $/;
        open(my $in, "<", $ARGV[0]) or exit 2;
        my $text = <$in>;
        close $in;
        my $count = () = $text =~ /\Q$s\E/g;
        exit 3 if $count != 1;
        $text =~ s/\Q$s\E/$r/;
        open(my $out, ">", $ARGV[0]) or exit 2;
        print $out $text;
        close $out or exit 2;
    ' "$ROOT/$1"
}

launcher=()
command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache)
export CCACHE_BASEDIR="${CCACHE_BASEDIR:-$ROOT}"

build_native_tests() {
    cmake --build "$MUTANT_NATIVE" --target cvpin_native_tests -j "$JOBS" >"$SCRATCH/build.log" 2>&1
}
run_native_tests() {
    timeout 600 "$MUTANT_NATIVE/tests/native/cvpin_native_tests" --gtest_brief=1 >"$SCRATCH/test.log" 2>&1
}

WINE_STARTED=""
# scope: program[=filter][,program[=filter]...]
build_windows_tests() {
    local targets=() entry
    for entry in ${1//,/ }; do targets+=("${entry%%=*}"); done
    cmake --build "$BUILD/win" --target "${targets[@]}" -j "$JOBS" >"$SCRATCH/build.log" 2>&1
}
run_windows_tests() {
    local entry program filter
    if [ -z "$WINE_STARTED" ]; then
        # The display and the Wine server outlive this step: they must not inherit the lock.
        ensure_display 9>&-
        prepare_wine 9>&-
        WINE_STARTED=1
    fi
    for entry in ${1//,/ }; do
        program="${entry%%=*}"
        filter="*"
        [[ "$entry" == *=* ]] && filter="${entry#*=}"
        (cd "$BUILD/win/bin" && timeout 600 /usr/lib/wine/wine64 "./$program.exe" --gtest_brief=1 \
            "--gtest_filter=$filter" </dev/null >"$SCRATCH/test.log" 2>&1 9>&-) || return 1
    done
}

lock_step
if [ $NATIVE_ONLY = 0 ]; then
    echo "== mutants: building the Windows tree"
    build_windows >"$SCRATCH/build.log" 2>&1 || { tail -40 "$SCRATCH/build.log"; exit 1; }
fi
echo "== mutants: building $MUTANT_NATIVE"
cmake -S "$ROOT" -B "$MUTANT_NATIVE" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCVPIN_SANITIZE=ON "${launcher[@]}" >/dev/null
build_native_tests || { tail -40 "$SCRATCH/build.log"; exit 1; }
run_native_tests || { echo "the native tests fail without any mutant"; cat "$SCRATCH/test.log"; exit 1; }
unlock_step

if [ $NATIVE_ONLY = 0 ]; then
    # A Windows test that fails on its own would make every mutant of its scope look killed.
    for scope in $(grep -v '^native ' <<<"$MUTANTS" | sed 's/ | .*//' | sort -u); do
        lock_step
        build_windows_tests "$scope" && run_windows_tests "$scope" ||
            { echo "the Windows tests $scope fail without any mutant"; cat "$SCRATCH/test.log"; exit 1; }
        unlock_step
    done
fi

failures=0
printf '%-9s %-38s %-28s %s\n' RESULT FILE SCOPE SEARCH
while IFS= read -r line <&3; do
    [ -z "$line" ] && continue
    scope="${line%% | *}"; rest="${line#* | }"
    file="${rest%% | *}"; rest="${rest#* | }"
    search="${rest%% | *}"; replace="${rest#* | }"
    [ $NATIVE_ONLY = 1 ] && [ "$scope" != native ] && continue

    note=""
    lock_step
    cp "$ROOT/$file" "$SCRATCH/original"
    RESTORE="$file"
    if ! apply_mutant "$file" "$search" "$replace" 2>/dev/null; then
        result=STALE
    elif [ "$scope" = native ]; then
        if ! build_native_tests; then result="KILLED"; note=" (does not build)"
        elif run_native_tests; then result=SURVIVED
        else result=KILLED; fi
    else
        if ! build_windows_tests "$scope"; then result="KILLED"; note=" (does not build)"
        elif run_windows_tests "$scope"; then result=SURVIVED
        else result=KILLED; fi
    fi
    restore
    unlock_step
    [ "$result" != KILLED ] && failures=$((failures + 1))
    printf '%-9s %-38s %-28s %s%s\n' "$result" "$file" "$scope" "$search" "$note"
done 3<<<"$MUTANTS"

# Leave both trees built from the sources as they are.
lock_step
build_native_tests >/dev/null 2>&1 || true
[ $NATIVE_ONLY = 0 ] && { build_windows >/dev/null 2>&1 || true; }
unlock_step

if [ $failures -gt 0 ]; then
    echo "mutants: $failures survived or stale"
    exit 1
fi
echo "mutants: every one killed"
