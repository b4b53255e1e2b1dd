// ROS 2 XML launch file: a tf2 static transform publisher per camera, in REP 103 axes
// with quaternions, ready for `ros2 launch`.
#include <QXmlStreamWriter>

#include "exporters/formats.hpp"

namespace exporters {
namespace {

QString number(double value) { return QString::number(value, 'g', 17); }

}  // namespace

std::string toRos2Launch(const std::vector<CameraPose>& cameras) {
    QString text;
    QXmlStreamWriter xml(&text);
    xml.setAutoFormatting(true);
    xml.setAutoFormattingIndent(2);
    xml.writeStartDocument();
    xml.writeComment(
        " Room calibration: camera_<serial> in halden_world, metres, REP 103 axes (x forward, y left, z up) for "
        "the room and the camera body; the optical frame is x right, y down, z forward. ");
    xml.writeStartElement("launch");
    for (const CameraPose& camera : cameras) {
        const Eigen::Isometry3d pose = bodyToRep103Room(camera);
        const Eigen::Vector3d t = pose.translation();
        const Eigen::Quaterniond q(pose.linear());
        const QString child = QString("camera_%1").arg(camera.serial);
        xml.writeStartElement("node");
        xml.writeAttribute("pkg", "tf2_ros");
        xml.writeAttribute("exec", "static_transform_publisher");
        xml.writeAttribute("name", "halden_" + child);
        xml.writeAttribute("args", QString("--x %1 --y %2 --z %3 --qx %4 --qy %5 --qz %6 --qw %7 "
                                           "--frame-id halden_world --child-frame-id %8")
                                       .arg(number(t.x()), number(t.y()), number(t.z()), number(q.x()),
                                            number(q.y()), number(q.z()), number(q.w()), child));
        xml.writeEndElement();
    }
    xml.writeEndElement();
    xml.writeEndDocument();
    return text.toStdString();
}

}  // namespace exporters
