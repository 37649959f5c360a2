#include "PhoneCardView.h"

#include "CallbackButton.h"
#include "ElidedLabel.h"
#include "Symbols.h"
#include "SystemColors.h"
#include "SystemFonts.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QVBoxLayout>

namespace keyferry {

namespace {

QString displayName(const PairedPhone& phone) {
    return phone.name.empty() ? QString::fromLatin1(PhoneCardView::unnamedPhone) : QString::fromStdString(phone.name);
}

} // namespace

PhoneCardView::PhoneCardView(const PairedPhone& phone, const PhoneStatus& phoneStatus, std::function<void()> onRemove,
                             QWidget* parent)
    : CardView(parent), icon(new QLabel(this)), name(new ElidedLabel(displayName(phone), this)),
      status(new ElidedLabel(QStringLiteral("\u25CF  ") + phoneStatus.text, this)), remove(new CallbackButton(this)) {
    icon->setPixmap(Symbols::tinted(QStringLiteral("iphone"), SystemColors::blue(), 23, devicePixelRatioF()));
    icon->setAlignment(Qt::AlignCenter);
    icon->setFixedSize(36, 44);
    icon->setAccessibleName(QStringLiteral("Phone"));

    name->setFont(SystemFonts::system(14, QFont::DemiBold));
    name->setMinimumWidth(80);
    status->setFont(SystemFonts::system(12));
    SystemColors::setTextColor(*status, phoneStatus.color);

    remove->setIcon(Symbols::icon(QStringLiteral("trash"), SystemColors::secondaryLabel()));
    remove->setIconSize(QSize(18, 18));
    remove->setFixedSize(32, 32);
    remove->setAccessibleName(QStringLiteral("Remove phone"));
    remove->setToolTip(QStringLiteral("Remove phone"));
    remove->onPress = std::move(onRemove);

    auto* textColumn = new QVBoxLayout;
    textColumn->setSpacing(4);
    textColumn->addStretch(1);
    textColumn->addWidget(name);
    textColumn->addWidget(status);
    textColumn->addStretch(1);

    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(18, 0, 14, 0);
    row->setSpacing(0);
    row->addWidget(icon, 0, Qt::AlignVCenter);
    row->addSpacing(14);
    row->addLayout(textColumn, 1);
    row->addSpacing(12);
    row->addWidget(remove, 0, Qt::AlignVCenter);
}

} // namespace keyferry
