// The dialogs' Help: opens a topic of the help file configured by the installation.
#pragma once

// Opens topicId of the file named by HKLM\SOFTWARE\Lumetra\Corvana "HelpPath"; shows nothing
// when that value cannot be read.
void DoDisplayTopic(int topicId);

// 1 when a help file is configured (so a Help button is worth showing), else 0.
int GetDisplayHelpValue();
