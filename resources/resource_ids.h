// Resource ids of the resource library (cv.corvana.gui.pinrc.dll), shared by the code and the
// resource scripts. One group per dialog; ids are unique within a group (checked by a test).
// Dialog, string and icon ids are separate name spaces: template 3073 and string 3073 differ.
#pragma once

// --- group: dialog templates
#define IDD_CHANGE_PIN_FORM 3002
#define IDD_CHANGE_PIN 3003
#define IDD_PIN_RULES 3011
#define IDD_KEYPAD_PROMPT 3072
#define IDD_ENTER_PIN 3073
#define IDD_ABOUT 3104
#define IDD_PIN_ALWAYS 3148
#define IDD_KEYPAD_CHANGE_PIN 3150

// --- group: controls of the PIN entry dialog (IDD_ENTER_PIN)
#define IDC_BANNER_PLACEHOLDER 3047
#define IDC_PIN_EDIT 3049
#define IDC_PIN_PROMPT 3074
#define IDC_BANNER_PICTURE 3075
#define IDC_SECOND_PICTURE 3076
#define IDC_READER_NAME 3077
#define IDC_PIN_LABEL 3078
#define IDC_PIN_ICON 3084
#define IDC_HELP_BUTTON 9

// --- group: controls of the PIN-pad prompts (IDD_KEYPAD_PROMPT, IDD_KEYPAD_CHANGE_PIN, IDD_PIN_ALWAYS)
#define IDC_KP_BANNER_PLACEHOLDER 3047
#define IDC_KP_PROMPT 3072
#define IDC_KP_BANNER_PICTURE 3075
#define IDC_KP_SECOND_PICTURE 3076
#define IDC_KP_READER_NAME 3077
#define IDC_KP_CHANGE_PROMPT 3083
#define IDC_KP_ICON 3084
#define IDC_KP_HELP_BUTTON 9

// --- group: controls of the About box (IDD_ABOUT)
#define IDC_ABOUT_PRODUCT 3105
#define IDC_ABOUT_VERSION 3106
#define IDC_ABOUT_TEXT 3107
#define IDC_ABOUT_ICON 3108

// --- group: controls of the rule list (IDD_PIN_RULES): a text and an icon per rule
#define IDC_RULE_ALPHA_TEXT 3001
#define IDC_RULE_CONFIRM_TEXT 3002
#define IDC_RULE_MAX_TEXT 3006
#define IDC_RULE_MIN_TEXT 3007
#define IDC_RULE_BOX 3008
#define IDC_RULE_SAME_TEXT 3009
#define IDC_RULE_WEAK_TEXT 3023
#define IDC_RULE_ALPHA_ICON 3011
#define IDC_RULE_CONFIRM_ICON 3012
#define IDC_RULE_MAX_ICON 3013
#define IDC_RULE_MIN_ICON 3014
#define IDC_RULE_SAME_ICON 3015
#define IDC_RULE_WEAK_ICON 3016

// --- group: controls of the PIN change form (IDD_CHANGE_PIN_FORM)
#define IDC_CURRENT_PIN_EDIT 3003
#define IDC_CONFIRM_PIN_EDIT 3004
#define IDC_NEW_PIN_EDIT 3005
#define IDC_CURRENT_PIN_LABEL 3017
#define IDC_CONFIRM_PIN_LABEL 3018
#define IDC_NEW_PIN_LABEL 3019
#define IDC_RULES_PLACEHOLDER 3020
#define IDC_CHANGE_INSTRUCTION 3022

// --- group: controls of the PIN change window (IDD_CHANGE_PIN)
#define IDC_FORM_PLACEHOLDER 3010

// --- group: icons and bitmaps
#define IDI_CHANGE_PIN 3012
#define IDI_RULE_UNMET 3014
#define IDI_RULE_MET 3016
#define IDI_CARD 3200
#define IDI_KEYPAD 3201

// --- group: strings
#define IDS_RULE_ALPHA 3021
#define IDS_CHANGE_PIN_TITLE 3022
#define IDS_RULE_CONFIRM 3023
#define IDS_RULE_MAX_LENGTH 3025
#define IDS_RULE_MIN_LENGTH 3026
#define IDS_CURRENT_PIN_LABEL 3028
#define IDS_CONFIRM_PIN_LABEL 3029
#define IDS_NEW_PIN_LABEL 3030
#define IDS_RULES_TITLE 3031
#define IDS_RULE_SAME 3032
#define IDS_CHANGE_INSTRUCTION 3033
#define IDS_RULE_WEAK 3034
#define IDS_CHANGE_INSTRUCTION_NEW_ONLY 3133
#define IDS_CAPS_TITLE 3041
#define IDS_CAPS_PIN_MESSAGE 3042
#define IDS_CAPS_PASSWORD_MESSAGE 3043
#define IDS_CAPS_SYSTEM_TEXT 3044
#define IDS_ERROR_1 3059
#define IDS_ERROR_2 3060
#define IDS_ERROR_3 3061
#define IDS_ERROR_4 3062
#define IDS_ERROR_5 3063
#define IDS_ERROR_6 3064
#define IDS_ERROR_7 3065
#define IDS_ERROR_8 3066
#define IDS_ERROR_9 3067
#define IDS_ERROR_10 3068
#define IDS_ERROR_12 3069
#define IDS_ERROR_14 3070
#define IDS_ERROR_11 3071
#define IDS_LAST_PIN_TRY 3073
#define IDS_ENTER_PIN_PROMPT 3163
#define IDS_KEYPAD_PROMPT 3164
#define IDS_KEYPAD_CHANGE_CURRENT 3170
#define IDS_KEYPAD_CHANGE_NEW 3171
#define IDS_ERROR_23 3172
#define IDS_MESSAGE_TITLE 3173
#define IDS_PRODUCT_NAME 3174

// --- group: help topics
#define HELP_TOPIC_PIN_PROMPT 1015
